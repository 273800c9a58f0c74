#pragma once

#include "platform/Clock.h"

namespace velmo::platform::linux {

// Wall time from the system clock; timers run on the monotonic clock so that
// a change of the system time doesn't stretch or shorten a delay.
class SystemClock final : public Clock {
 public:
  TimePoint now() const override;
  std::unique_ptr<Timer> scheduleAfter(Duration delay, asio::any_io_executor executor,
                                       std::function<void()> action) override;
};

}  // namespace velmo::platform::linux
