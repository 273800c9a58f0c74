#pragma once

#include <optional>

#include "platform/AgentStatusReader.h"

namespace velmo::platform::fake {

// Answers with whatever the test put in `agent`.
class FakeAgentStatusReader final : public AgentStatusReader {
 public:
  std::optional<RunningAgent> read() const override { return agent; }
  std::optional<RunningAgent> agent;
};

}  // namespace velmo::platform::fake
