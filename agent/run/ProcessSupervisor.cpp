#include "agent/run/ProcessSupervisor.h"

#include <signal.h>

namespace velmo::agent::run {
namespace {

// The graces after SIGTERM (5.0 s) and SIGKILL (1.0 s), counted in polls.
constexpr int kPollsAfterTerminate = 25;
constexpr int kPollsAfterKill = 5;

}  // namespace

asio::awaitable<std::optional<int>> ProcessSupervisor::superviseWithLimit(
    platform::ChildProcess& process, platform::Clock& clock, platform::Duration limit,
    Hooks hooks) {
  const platform::TimePoint deadline = clock.now() + limit;
  while (process.isRunning()) {
    if (clock.now() < deadline) {
      co_await clock.sleep(kPollInterval);
      continue;
    }
    if (hooks.beforeTerminate) hooks.beforeTerminate();
    process.sendSignal(SIGTERM);
    for (int polls = 0; polls < kPollsAfterTerminate && process.isRunning(); ++polls) {
      co_await clock.sleep(kPollInterval);
    }
    const bool leaderRuns = process.isRunning();
    if (leaderRuns && hooks.beforeKill) hooks.beforeKill();
    // Also when the tool itself is gone: what it started may have outlived it.
    if (process.processIdentifier() >= 1) process.sendSignal(SIGKILL);
    for (int polls = 0; leaderRuns && polls < kPollsAfterKill && process.isRunning(); ++polls) {
      co_await clock.sleep(kPollInterval);
    }
    co_return std::nullopt;
  }
  co_return process.terminationStatus();
}

}  // namespace velmo::agent::run
