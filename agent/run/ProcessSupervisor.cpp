#include "agent/run/ProcessSupervisor.h"

#include <signal.h>

#include <memory>

#include <asio/async_result.hpp>
#include <asio/post.hpp>
#include <asio/this_coro.hpp>
#include <asio/use_awaitable.hpp>

namespace velmo::agent::run {

asio::awaitable<ProcessSupervisor::Ending> ProcessSupervisor::waitFor(
    platform::ChildProcess& process, platform::Clock& clock,
    std::optional<platform::Duration> limit, core::AgentLifecycle* lifecycle) {
  auto executor = co_await asio::this_coro::executor;
  // Each source may finish the wait; the first one does, and the others are
  // cancelled when these handles go at the end of this scope.
  std::unique_ptr<platform::Timer> exitWatch;
  std::unique_ptr<platform::Timer> deadline;
  core::Subscription stop;
  const Ending ending = co_await asio::async_initiate<decltype(asio::use_awaitable), void(Ending)>(
      [&](auto handler) {
        using Handler = decltype(handler);
        auto pending = std::make_shared<std::unique_ptr<Handler>>(
            std::make_unique<Handler>(std::move(handler)));
        const auto finish = [pending](Ending why) {
          if (auto finished = std::exchange(*pending, nullptr)) std::move (*finished)(why);
        };
        exitWatch = process.onExit(executor, [finish] { finish(Ending::exited); });
        if (limit)
          deadline = clock.scheduleAfter(*limit, executor, [finish] { finish(Ending::timedOut); });
        if (lifecycle) {
          stop = lifecycle->subscribe([finish, executor](core::LifePhase phase) {
            // Not from inside the subscription: the wait's end cancels it.
            if (phase == core::LifePhase::ending) {
              asio::post(executor, [finish] { finish(Ending::stopped); });
            }
          });
        }
      },
      asio::use_awaitable);
  co_return ending;
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
