#pragma once

#include <functional>
#include <optional>

#include <asio/awaitable.hpp>

#include "platform/ChildProcess.h"
#include "platform/Clock.h"

namespace velmo::agent::run {

// Watches a child under a time limit, checking every 0.2 s. When the limit
// runs out: SIGTERM, up to 5 s of grace, then SIGKILL and up to 1 s more.
// Shared by the tool runner and the inventory update, which differ only in
// what they say on the way.
class ProcessSupervisor {
 public:
  static constexpr platform::Duration kPollInterval = std::chrono::milliseconds(200);

  struct Hooks {
    std::function<void()> beforeTerminate;  // The limit ran out.
    std::function<void()> beforeKill;       // SIGTERM didn't end it.
  };

  // The exit status when the child ended in time; nothing after a time-out,
  // whether or not the child is gone by then.
  static asio::awaitable<std::optional<int>> superviseWithLimit(platform::ChildProcess& process,
                                                                platform::Clock& clock,
                                                                platform::Duration limit,
                                                                Hooks hooks = {});
};

}  // namespace velmo::agent::run
