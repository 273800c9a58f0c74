#include "backends/fake/FakeProcessLauncher.h"

#include <signal.h>

#include <algorithm>

namespace velmo::platform::fake {
namespace {

class FakeChildProcess final : public ChildProcess {
 public:
  FakeChildProcess(Clock& clock, FakeProcessScript script, int pid, std::vector<int>& signalsSent)
      : clock_(clock),
        script_(script),
        pid_(pid),
        signals_(signalsSent),
        launchedAt_(clock.elapsed()) {
    if (script_.exitAfter) exit(launchedAt_ + *script_.exitAfter, script_.exitStatus);
  }

  int processIdentifier() const override { return pid_; }
  bool isRunning() override { return !exitAt_ || clock_.elapsed() < *exitAt_; }
  int terminationStatus() const override { return status_; }
  std::string standardError() const override { return script_.standardError; }

  void sendSignal(int signal) override {
    signals_.push_back(signal);
    if (!isRunning()) return;
    if (signal == SIGTERM && script_.exitAfterTerminate) {
      exit(clock_.elapsed() + *script_.exitAfterTerminate, script_.statusOnTerminate);
    } else if (signal == SIGKILL && !script_.ignoresKill) {
      exit(clock_.elapsed(), SIGKILL);
    }
  }

  std::unique_ptr<Timer> onExit(asio::any_io_executor executor,
                                std::function<void()> action) override {
    auto waiter = std::make_shared<Waiter>(Waiter{std::move(executor), std::move(action)});
    waiters_.push_back(waiter);
    arm(*waiter);
    return std::make_unique<WaiterHandle>(waiter);
  }

 private:
  struct Waiter {
    asio::any_io_executor executor;
    std::function<void()> action;
    std::unique_ptr<Timer> timer{};
    bool cancelled = false;
  };
  class WaiterHandle final : public Timer {
   public:
    explicit WaiterHandle(std::shared_ptr<Waiter> waiter) : waiter_(std::move(waiter)) {}
    ~WaiterHandle() override { cancel(); }
    void cancel() override {
      waiter_->cancelled = true;
      waiter_->timer.reset();
    }

   private:
    std::shared_ptr<Waiter> waiter_;
  };

  void exit(ElapsedPoint at, int status) {
    if (exitAt_ && *exitAt_ <= at) return;
    exitAt_ = at;
    status_ = status;
    std::erase_if(waiters_, [](const auto& waiter) { return waiter->cancelled; });
    for (const auto& waiter : waiters_) arm(*waiter);
  }
  // A timer at the exit, once one is due; a later, earlier exit re-arms it.
  void arm(Waiter& waiter) {
    if (!exitAt_ || waiter.cancelled) return;
    waiter.timer = clock_.scheduleAfter(*exitAt_ - clock_.elapsed(), waiter.executor,
                                        [&waiter] { waiter.action(); });
  }

  Clock& clock_;
  FakeProcessScript script_;
  int pid_;
  std::vector<int>& signals_;
  ElapsedPoint launchedAt_;
  std::optional<ElapsedPoint> exitAt_;
  int status_ = 0;
  std::vector<std::shared_ptr<Waiter>> waiters_;
};

}  // namespace

LaunchResult FakeProcessLauncher::launch(const std::filesystem::path& executable,
                                         const std::vector<std::string>& arguments,
                                         StandardError standardError) {
  launches_.push_back({executable, arguments, {}, standardError, clock_.now()});
  if (!failures_.empty()) {
    std::string description = std::move(failures_.front());
    failures_.pop_front();
    return LaunchFailure{std::move(description)};
  }
  FakeProcessScript script{.exitAfter = Duration::zero()};
  if (!scripts_.empty()) {
    script = scripts_.front();
    scripts_.pop_front();
  }
  return std::make_unique<FakeChildProcess>(clock_, script, nextPid_++, launches_.back().signals);
}

}  // namespace velmo::platform::fake
