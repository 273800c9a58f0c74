#pragma once

#include <vector>

#include "platform/AgentStatusPublisher.h"

namespace velmo::platform::fake {

// Keeps every status published, in order.
class RecordingAgentStatusPublisher final : public AgentStatusPublisher {
 public:
  void publish(const AgentStatus& status) override { published.push_back(status); }
  std::vector<AgentStatus> published;
};

}  // namespace velmo::platform::fake
