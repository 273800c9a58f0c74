#pragma once

#include <chrono>
#include <functional>
#include <memory>

#include <asio/any_io_executor.hpp>
#include <asio/awaitable.hpp>

#include "core/values/Time.h"

namespace velmo::platform {

using core::Duration;
using core::TimePoint;

// A one-shot timer armed by Clock::scheduleAfter. Cancelling, or destroying the
// handle, guarantees the action will not run afterwards.
class Timer {
 public:
  virtual ~Timer() = default;
  virtual void cancel() = 0;
};

// The one source of "now", sleeps, timers and debounces. Production uses the
// system clock; unit tests use a virtual clock and advance it by hand.
class Clock {
 public:
  virtual ~Clock() = default;

  virtual TimePoint now() const = 0;

  // Runs `action` on `executor` once `delay` has passed. A negative delay counts as zero.
  [[nodiscard]] virtual std::unique_ptr<Timer> scheduleAfter(Duration delay,
                                                             asio::any_io_executor executor,
                                                             std::function<void()> action) = 0;

  // Suspends the calling coroutine for `delay`; it resumes on its own executor.
  asio::awaitable<void> sleep(Duration delay);
};

}  // namespace velmo::platform
