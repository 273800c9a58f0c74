#pragma once

#include <functional>
#include <optional>

#include <asio/awaitable.hpp>

#include "core/AgentLifecycle.h"
#include "platform/ChildProcess.h"
#include "platform/Clock.h"

namespace velmo::agent::run {

// Watches a child until it exits, its time limit (elapsed time) runs out, or
// the agent's stop stops waiting for it, whichever comes first; nothing polls.
// When it is to be ended: SIGTERM to its group, up to 5 s of grace, then
// SIGKILL and up to 1 s more. Shared by the tool runner and the inventory
// update, which differ only in what they say on the way.
class ProcessSupervisor {
 public:
  static constexpr platform::Duration kTerminateGrace = std::chrono::seconds(5);
  static constexpr platform::Duration kKillGrace = std::chrono::seconds(1);

  enum class Ending { exited, timedOut, stopped };

  struct Hooks {
    std::function<void(Ending why)> beforeTerminate;  // The limit ran out, or the stop came.
    std::function<void()> beforeKill;                 // SIGTERM didn't end it.
  };

  // The exit status when the child ended by itself; nothing when it was ended,
  // whether or not it is gone by then. Without a limit it waits as long as the
  // child runs; without a lifecycle no stop ends it.
  static asio::awaitable<std::optional<int>> supervise(platform::ChildProcess& process,
                                                       platform::Clock& clock,
                                                       std::optional<platform::Duration> limit,
                                                       core::AgentLifecycle* lifecycle,
                                                       Hooks hooks = {});

  // The inventory update's form: a limit and no stop.
  static asio::awaitable<std::optional<int>> superviseWithLimit(platform::ChildProcess& process,
                                                                platform::Clock& clock,
                                                                platform::Duration limit) {
    return supervise(process, clock, limit, nullptr);
  }

  // Completes when the child exits, `limit` has passed, or the lifecycle
  // reaches its end, whichever comes first.
  static asio::awaitable<Ending> waitFor(platform::ChildProcess& process, platform::Clock& clock,
                                         std::optional<platform::Duration> limit,
                                         core::AgentLifecycle* lifecycle);
};

}  // namespace velmo::agent::run
