#pragma once

#include "platform/Clock.h"

namespace velmo::platform::linux {

// Wall time from the system clock; elapsed time and timers from the monotonic
// clock (CLOCK_MONOTONIC), which stops in suspend, so that neither a change of
// the system time nor a night's sleep stretches or shortens a delay.
class SystemClock final : public Clock {
 public:
  TimePoint now() const override;
  ElapsedPoint elapsed() const override;
  // A timerfd on CLOCK_REALTIME armed far ahead with TFD_TIMER_CANCEL_ON_SET:
  // the kernel wakes it when the clock is set, so nothing polls.
  std::unique_ptr<Timer> observeWallClockSteps(asio::any_io_executor executor,
                                               std::function<void(Duration step)> action) override;
  std::unique_ptr<Timer> scheduleAfter(Duration delay, asio::any_io_executor executor,
                                       std::function<void()> action) override;
};

}  // namespace velmo::platform::linux
