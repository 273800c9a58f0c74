#pragma once

#include <chrono>
#include <cstdint>
#include <functional>
#include <memory>
#include <string>

#include "core/Executors.h"
#include "core/logging/CustomLogger.h"
#include "platform/Clock.h"

namespace velmo::core {

// Keeps a state file's writes going through a fault such as a full disk, and
// says the fault once. The owner keeps what it failed to write and reports
// each attempt here: the first failure of an episode is logged with the
// owner's line, later ones are only counted, and the first success after them
// logs one line with that count. Between failures it asks the owner to try
// again, after 1 s, doubling up to 5 minutes; the owner also tries at every
// later change. Main executor only; destroying it cancels the pending retry.
class WriteRetry {
 public:
  // A short fault (a tool's download filling the disk for a moment) is over
  // within seconds; a day-long one costs a write every 5 minutes.
  static constexpr Duration kFirstDelay = std::chrono::seconds(1);
  static constexpr Duration kLongestDelay = std::chrono::minutes(5);

  WriteRetry(CustomLogger logger, platform::Clock& clock, Executor executor, std::string what,
             std::function<void()> retry);

  // `line` is the error line of the owner's own wording and the system's reason.
  void failed(const std::string& line);
  void succeeded();
  // Failed attempts in the episode so far; 0 when the last attempt succeeded.
  std::uint64_t failedAttempts() const { return failedAttempts_; }
  // When the owner will be asked to try again; none when nothing is pending.
  bool retryPending() const { return timer_ != nullptr; }

 private:
  CustomLogger logger_;
  platform::Clock& clock_;
  Executor executor_;
  std::string what_;
  std::function<void()> retry_;
  std::uint64_t failedAttempts_ = 0;
  Duration delay_ = kFirstDelay;
  std::unique_ptr<platform::Timer> timer_;
};

}  // namespace velmo::core
