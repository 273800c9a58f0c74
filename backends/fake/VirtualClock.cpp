#include "backends/fake/VirtualClock.h"

#include <algorithm>

#include <asio/post.hpp>

namespace velmo::platform::fake {
namespace {

class VirtualTimer final : public Timer {
 public:
  explicit VirtualTimer(std::shared_ptr<bool> cancelled) : cancelled_(std::move(cancelled)) {}
  ~VirtualTimer() override { cancel(); }
  void cancel() override { *cancelled_ = true; }

 private:
  std::shared_ptr<bool> cancelled_;
};

}  // namespace

VirtualClock::VirtualClock(asio::io_context& context, TimePoint start)
    : context_(context), now_(start) {}

std::unique_ptr<Timer> VirtualClock::scheduleAfter(Duration delay, asio::any_io_executor executor,
                                                   std::function<void()> action) {
  auto cancelled = std::make_shared<bool>(false);
  entries_.emplace(std::pair(now_ + std::max(delay, Duration::zero()), sequence_++),
                   Entry{std::move(executor), std::move(action), cancelled});
  return std::make_unique<VirtualTimer>(std::move(cancelled));
}

void VirtualClock::advance(Duration step) {
  const TimePoint target = now_ + std::max(step, Duration::zero());
  runUntilIdle();
  while (!entries_.empty() && entries_.begin()->first.first <= target) {
    auto node = entries_.extract(entries_.begin());
    if (*node.mapped().cancelled) continue;
    now_ = std::max(now_, node.key().first);
    auto cancelled = node.mapped().cancelled;
    asio::post(node.mapped().executor, [cancelled, action = std::move(node.mapped().action)] {
      if (!*cancelled) action();
    });
    runUntilIdle();
  }
  now_ = target;
  runUntilIdle();
}

std::unique_ptr<Timer> VirtualClock::observeWallClockSteps(asio::any_io_executor executor,
                                                           std::function<void(Duration)> action) {
  auto cancelled = std::make_shared<bool>(false);
  stepObservers_.push_back({std::move(executor), std::move(action), cancelled});
  return std::make_unique<VirtualTimer>(std::move(cancelled));
}

void VirtualClock::stepWallClock(Duration step) {
  wallStep_ += step;
  std::erase_if(stepObservers_, [](const StepObserver& observer) { return *observer.cancelled; });
  for (const auto& observer : stepObservers_) {
    asio::post(observer.executor, [observer, step] {
      if (!*observer.cancelled) observer.action(step);
    });
  }
}

void VirtualClock::runUntilIdle() {
  do {
    context_.restart();
  } while (context_.poll() > 0);
}

std::size_t VirtualClock::pendingTimers() const {
  return std::count_if(entries_.begin(), entries_.end(),
                       [](const auto& entry) { return !*entry.second.cancelled; });
}

}  // namespace velmo::platform::fake
