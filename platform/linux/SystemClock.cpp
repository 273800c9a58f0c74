#include "platform/linux/SystemClock.h"

#include <asio/steady_timer.hpp>

namespace velmo::platform::linux {
namespace {

class SteadyTimer final : public Timer {
 public:
  SteadyTimer(Duration delay, asio::any_io_executor executor, std::function<void()> action)
      : state_(std::make_shared<State>(std::move(executor))) {
    state_->timer.expires_after(std::max(delay, Duration::zero()));
    // The handler keeps the state alive; the flag covers a handler that was
    // already queued when cancel() ran.
    state_->timer.async_wait([state = state_, action = std::move(action)](std::error_code error) {
      if (!error && !state->cancelled) action();
    });
  }
  ~SteadyTimer() override { cancel(); }

  void cancel() override {
    state_->cancelled = true;
    state_->timer.cancel();
  }

 private:
  struct State {
    explicit State(asio::any_io_executor executor) : timer(std::move(executor)) {}
    asio::steady_timer timer;
    bool cancelled = false;
  };
  std::shared_ptr<State> state_;
};

}  // namespace

TimePoint SystemClock::now() const { return std::chrono::system_clock::now(); }

std::unique_ptr<Timer> SystemClock::scheduleAfter(Duration delay, asio::any_io_executor executor,
                                                  std::function<void()> action) {
  return std::make_unique<SteadyTimer>(delay, std::move(executor), std::move(action));
}

}  // namespace velmo::platform::linux
