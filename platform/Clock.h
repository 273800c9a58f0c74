#pragma once

#include <chrono>
#include <functional>
#include <memory>

#include <asio/any_io_executor.hpp>
#include <asio/awaitable.hpp>

#include "core/values/Time.h"

namespace velmo::platform {

using core::Duration;
using core::ElapsedPoint;
using core::TimePoint;

// A one-shot timer armed by Clock::scheduleAfter. Cancelling, or destroying the
// handle, guarantees the action will not run afterwards.
class Timer {
 public:
  virtual ~Timer() = default;
  virtual void cancel() = 0;
};

// The one source of "now", sleeps, timers and debounces. It has two faces:
// wall time (dates, windows, files, when a run is due) and elapsed time (time
// limits, graces, throttles, debounces, back-off), which doesn't advance while
// the machine sleeps and never jumps. Production uses the system clock; unit
// tests use a virtual clock and advance it by hand.
class Clock {
 public:
  virtual ~Clock() = default;

  // Wall time.
  virtual TimePoint now() const = 0;
  // Elapsed time, from an arbitrary origin.
  virtual ElapsedPoint elapsed() const = 0;

  // Runs `action` on `executor` whenever the wall clock is set (stepped) apart
  // from its running, with the size of the step (negative: set back).
  // Destroying the handle ends the observation.
  [[nodiscard]] virtual std::unique_ptr<Timer> observeWallClockSteps(
      asio::any_io_executor executor, std::function<void(Duration step)> action) = 0;

  // Runs `action` on `executor` once `delay` of elapsed time has passed. A
  // negative delay counts as zero.
  [[nodiscard]] virtual std::unique_ptr<Timer> scheduleAfter(Duration delay,
                                                             asio::any_io_executor executor,
                                                             std::function<void()> action) = 0;

  // Suspends the calling coroutine for `delay`; it resumes on its own executor.
  asio::awaitable<void> sleep(Duration delay);
};

}  // namespace velmo::platform
