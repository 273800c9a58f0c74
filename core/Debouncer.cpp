#include "core/Debouncer.h"

namespace velmo::core {

Debouncer::Debouncer(asio::any_io_executor executor, platform::Clock& clock, Duration delay,
                     std::function<void()> action)
    : executor_(std::move(executor)), clock_(clock), delay_(delay), action_(std::move(action)) {}

void Debouncer::trigger() {
  // Replacing the timer cancels the one before: never two armed at once.
  timer_ = clock_.scheduleAfter(delay_, executor_, [this] {
    timer_.reset();
    action_();
  });
}

}  // namespace velmo::core
