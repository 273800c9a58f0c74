#pragma once

#include <optional>
#include <vector>

#include "platform/AgentStatusPublisher.h"
#include "platform/AgentStatusReader.h"

namespace velmo::platform::fake {

// Keeps every status published, in order.
class RecordingAgentStatusPublisher final : public AgentStatusPublisher {
 public:
  void publish(const AgentStatus& status) override { published.push_back(status); }
  std::vector<AgentStatus> published;
};

// Answers with whatever the test put in `agent`.
class FakeAgentStatusReader final : public AgentStatusReader {
 public:
  std::optional<RunningAgent> read() const override { return agent; }
  std::optional<RunningAgent> agent;
};

}  // namespace velmo::platform::fake
