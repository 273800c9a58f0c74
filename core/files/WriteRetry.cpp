#include "core/files/WriteRetry.h"

#include <algorithm>

namespace velmo::core {

WriteRetry::WriteRetry(CustomLogger logger, platform::Clock& clock, Executor executor,
                       std::string what, std::function<void()> retry)
    : logger_(std::move(logger)),
      clock_(clock),
      executor_(std::move(executor)),
      what_(std::move(what)),
      retry_(std::move(retry)) {}

void WriteRetry::failed(const std::string& line) {
  if (failedAttempts_++ == 0) logger_.error(line);
  // A change that fails while a retry is armed leaves it as it is: the
  // back-off counts from the retry's own failures.
  if (timer_) return;
  timer_ = clock_.scheduleAfter(delay_, executor_, [this] {
    timer_.reset();
    retry_();
  });
  delay_ = std::min(delay_ * 2, kLongestDelay);
}

void WriteRetry::succeeded() {
  timer_.reset();
  delay_ = kFirstDelay;
  if (failedAttempts_ == 0) return;
  const auto attempts = std::exchange(failedAttempts_, 0);
  logger_.info("Saved " + what_ + " after " + std::to_string(attempts) + " failed attempt" +
               (attempts == 1 ? "" : "s") + ".");
}

}  // namespace velmo::core
