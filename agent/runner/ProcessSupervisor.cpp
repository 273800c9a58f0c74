#include "agent/runner/ProcessSupervisor.h"

#include <signal.h>

#include <memory>

#include <asio/post.hpp>
#include <asio/redirect_error.hpp>
#include <asio/steady_timer.hpp>
#include <asio/this_coro.hpp>
#include <asio/use_awaitable.hpp>

namespace velmo::agent::run {

asio::awaitable<ProcessSupervisor::Ending> ProcessSupervisor::waitFor(
    platform::ChildProcess& process, platform::Clock& clock,
    std::optional<platform::Duration> limit, core::AgentLifecycle* lifecycle) {
  auto executor = co_await asio::this_coro::executor;
  // The wait parks on a timer that never expires, and the first source to
  // finish cancels it. The parked wait belongs to the event loop, not to the
  // sources, so a loop torn down with the child still running frees it all.
  struct Wait {
    explicit Wait(const asio::any_io_executor& executor)
        : wake(executor, asio::steady_timer::time_point::max()) {}
    std::optional<Ending> ending;
    asio::steady_timer wake;
  };
  const auto wait = std::make_shared<Wait>(executor);
  const auto finish = [weak = std::weak_ptr<Wait>(wait)](Ending why) {
    const auto waiting = weak.lock();
    if (!waiting || waiting->ending) return;
    waiting->ending = why;
    waiting->wake.cancel();
  };
  // Each source is cancelled when its handle goes, at the end of this scope.
  const auto exitWatch = process.onExit(executor, [finish] { finish(Ending::exited); });
  std::unique_ptr<platform::Timer> deadline;
  if (limit)
    deadline = clock.scheduleAfter(*limit, executor, [finish] { finish(Ending::timedOut); });
  core::Subscription stop;
  if (lifecycle) {
    stop = lifecycle->subscribe([finish, executor](core::LifePhase phase) {
      // Not from inside the subscription: the wait's end cancels it.
      if (phase == core::LifePhase::ending) {
        asio::post(executor, [finish] { finish(Ending::stopped); });
      }
    });
  }
  while (!wait->ending) {
    std::error_code cancelled;
    co_await wait->wake.async_wait(asio::redirect_error(asio::use_awaitable, cancelled));
  }
  co_return *wait->ending;
}

asio::awaitable<std::optional<int>> ProcessSupervisor::supervise(
    platform::ChildProcess& process, platform::Clock& clock,
    std::optional<platform::Duration> limit, core::AgentLifecycle* lifecycle, Hooks hooks) {
  const Ending ending = co_await waitFor(process, clock, limit, lifecycle);
  if (ending == Ending::exited) co_return process.terminationStatus();
  if (hooks.beforeTerminate) hooks.beforeTerminate(ending);
  process.sendSignal(SIGTERM);
  const bool leaderRuns =
      co_await waitFor(process, clock, kTerminateGrace, nullptr) != Ending::exited;
  if (leaderRuns && hooks.beforeKill) hooks.beforeKill();
  // Also when the tool itself is gone: what it started may have outlived it.
  if (process.processIdentifier() >= 1) process.sendSignal(SIGKILL);
  if (leaderRuns) (void)co_await waitFor(process, clock, kKillGrace, nullptr);
  co_return std::nullopt;
}

}  // namespace velmo::agent::run
