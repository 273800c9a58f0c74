#include "platform/fake/FakeProcessLauncher.h"

#include <signal.h>

#include <algorithm>

namespace velmo::platform::fake {
namespace {

class FakeChildProcess final : public ChildProcess {
 public:
  FakeChildProcess(Clock& clock, FakeProcessScript script, int pid, std::vector<int>& signalsSent)
      : clock_(clock), script_(script), pid_(pid), signals_(signalsSent), launchedAt_(clock.now()) {
    if (script_.exitAfter) exit(launchedAt_ + *script_.exitAfter, script_.exitStatus);
  }

  int processIdentifier() const override { return pid_; }
  bool isRunning() override { return !exitAt_ || clock_.now() < *exitAt_; }
  int terminationStatus() const override { return status_; }
  std::string standardError() const override { return script_.standardError; }

  void sendSignal(int signal) override {
    signals_.push_back(signal);
    if (!isRunning()) return;
    if (signal == SIGTERM && script_.exitAfterTerminate) {
      exit(clock_.now() + *script_.exitAfterTerminate, script_.statusOnTerminate);
    } else if (signal == SIGKILL && !script_.ignoresKill) {
      exit(clock_.now(), SIGKILL);
    }
  }

  asio::awaitable<void> waitUntilExit() override {
    while (isRunning()) {
      co_await clock_.sleep(exitAt_ ? *exitAt_ - clock_.now() : std::chrono::hours(24));
    }
  }

 private:
  void exit(TimePoint at, int status) {
    if (exitAt_ && *exitAt_ <= at) return;
    exitAt_ = at;
    status_ = status;
  }

  Clock& clock_;
  FakeProcessScript script_;
  int pid_;
  std::vector<int>& signals_;
  TimePoint launchedAt_;
  std::optional<TimePoint> exitAt_;
  int status_ = 0;
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
