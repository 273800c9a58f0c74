#include "backends/linux/SystemClock.h"

#include <sys/timerfd.h>
#include <unistd.h>

#include <cerrno>
#include <cstdint>

#include <asio/posix/stream_descriptor.hpp>
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

// How far wall time runs ahead of elapsed time; a step of the wall clock
// changes it by the step.
Duration wallOffset() {
  return std::chrono::system_clock::now().time_since_epoch() -
         std::chrono::steady_clock::now().time_since_epoch();
}

class WallClockStepWatch final : public Timer {
 public:
  WallClockStepWatch(asio::any_io_executor executor, std::function<void(Duration)> action)
      : state_(std::make_shared<State>(std::move(executor), std::move(action))) {
    const int fd = ::timerfd_create(CLOCK_REALTIME, TFD_NONBLOCK | TFD_CLOEXEC);
    if (fd < 0) return;  // Without one, steps go unnoticed; timers still keep their time.
    state_->descriptor.assign(fd);
    if (State::arm(fd)) State::wait(state_);
  }
  ~WallClockStepWatch() override { cancel(); }
  void cancel() override {
    state_->cancelled = true;
    std::error_code ignored;
    state_->descriptor.close(ignored);
  }

 private:
  struct State : std::enable_shared_from_this<State> {
    State(asio::any_io_executor executor, std::function<void(Duration)> action)
        : descriptor(std::move(executor)), action(std::move(action)) {}
    // Far ahead, so it only ever wakes for a step: ten years on.
    static bool arm(int fd) {
      itimerspec farAhead{};
      farAhead.it_value.tv_sec = ::time(nullptr) + 10 * 365 * 86'400;
      return ::timerfd_settime(fd, TFD_TIMER_ABSTIME | TFD_TIMER_CANCEL_ON_SET, &farAhead,
                               nullptr) == 0;
    }
    static void wait(const std::shared_ptr<State>& state) {
      state->descriptor.async_wait(asio::posix::descriptor_base::wait_read,
                                   [state](std::error_code error) {
                                     if (error || state->cancelled) return;
                                     state->woken();
                                   });
    }
    void woken() {
      std::uint64_t expirations = 0;
      // ECANCELED is the step; an expiry ten years on only needs a new arming.
      const bool stepped =
          ::read(descriptor.native_handle(), &expirations, sizeof expirations) < 0 &&
          errno == ECANCELED;
      if (!arm(descriptor.native_handle())) return;
      const Duration now = wallOffset();
      const Duration step = now - offset;
      offset = now;
      if (stepped) action(step);
      if (!cancelled) wait(shared_from_this());
    }

    asio::posix::stream_descriptor descriptor;
    std::function<void(Duration)> action;
    Duration offset = wallOffset();
    bool cancelled = false;
  };
  std::shared_ptr<State> state_;
};

}  // namespace

TimePoint SystemClock::now() const { return std::chrono::system_clock::now(); }

ElapsedPoint SystemClock::elapsed() const { return std::chrono::steady_clock::now(); }

std::unique_ptr<Timer> SystemClock::observeWallClockSteps(asio::any_io_executor executor,
                                                          std::function<void(Duration)> action) {
  return std::make_unique<WallClockStepWatch>(std::move(executor), std::move(action));
}

std::unique_ptr<Timer> SystemClock::scheduleAfter(Duration delay, asio::any_io_executor executor,
                                                  std::function<void()> action) {
  return std::make_unique<SteadyTimer>(delay, std::move(executor), std::move(action));
}

}  // namespace velmo::platform::linux
