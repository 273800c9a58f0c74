#pragma once

#include "platform/AgentStatus.h"

namespace velmo::platform {

// Shows the agent's status to the machine's users.
class AgentStatusPublisher {
 public:
  virtual ~AgentStatusPublisher() = default;
  // The whole status; only what differs from the last one is announced.
  virtual void publish(const AgentStatus& status) = 0;
};

}  // namespace velmo::platform
