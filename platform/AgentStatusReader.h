#pragma once

#include <sys/types.h>

#include <optional>

#include "platform/AgentStatus.h"

namespace velmo::platform {

// The running agent as another program sees it.
struct RunningAgent {
  AgentStatus status{};
  std::optional<pid_t> pid{};
};

// Asks the running agent for its status, for a command line tool: blocks for
// at most a second.
class AgentStatusReader {
 public:
  virtual ~AgentStatusReader() = default;
  // Nothing when no agent answers.
  virtual std::optional<RunningAgent> read() const = 0;
};

}  // namespace velmo::platform
