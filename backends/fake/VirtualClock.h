#pragma once

#include <cstdint>
#include <map>
#include <utility>
#include <vector>

#include <asio/io_context.hpp>

#include "platform/Clock.h"

namespace velmo::platform::fake {

// A clock whose time moves only when a test says so. Due actions are posted
// to their executors and the test's io_context is run until it is idle, so a
// test can live through hours of timers in milliseconds. Single-threaded.
class VirtualClock final : public Clock {
 public:
  // 2026-03-10T14:05:09Z: an arbitrary but fixed start.
  static constexpr TimePoint kDefaultStart = TimePoint(std::chrono::seconds(1773151509));

  explicit VirtualClock(asio::io_context& context, TimePoint start = kDefaultStart);

  TimePoint now() const override { return now_ + wallStep_; }
  ElapsedPoint elapsed() const override { return ElapsedPoint(now_.time_since_epoch()); }
  std::unique_ptr<Timer> observeWallClockSteps(asio::any_io_executor executor,
                                               std::function<void(Duration)> action) override;
  std::unique_ptr<Timer> scheduleAfter(Duration delay, asio::any_io_executor executor,
                                       std::function<void()> action) override;

  // Moves time forward by `step`, firing every timer that falls due on the way
  // at its own instant, in order.
  void advance(Duration step);
  // Sets the wall clock by `step` (back when negative), as an administrator or
  // a time service does: timers and elapsed time keep their own time, and the
  // observers of steps hear of it.
  void stepWallClock(Duration step);
  // Runs everything that is ready now without moving time.
  void runUntilIdle();
  // Armed, uncancelled timers.
  std::size_t pendingTimers() const;

 private:
  struct Entry {
    asio::any_io_executor executor;
    std::function<void()> action;
    std::shared_ptr<bool> cancelled;
  };

  asio::io_context& context_;
  TimePoint now_;  // Timers' time; now() adds the wall clock's steps.
  Duration wallStep_{};
  std::uint64_t sequence_ = 0;
  std::map<std::pair<TimePoint, std::uint64_t>, Entry> entries_;
  struct StepObserver {
    asio::any_io_executor executor;
    std::function<void(Duration)> action;
    std::shared_ptr<bool> cancelled;
  };
  std::vector<StepObserver> stepObservers_;
};

}  // namespace velmo::platform::fake
