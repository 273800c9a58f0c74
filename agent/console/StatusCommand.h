#pragma once

#include <ostream>

#include <nlohmann/json.hpp>

#include "agent/console/AgentFacts.h"
#include "agent/console/ConsoleText.h"

namespace velmo::agent::console {

// `velmo-agent status`: the policy in force, what runs and housekeeping have
// done and will do next, pending items and deferrals, and the running agent.
class StatusCommand {
 public:
  static nlohmann::json json(const AgentFacts& facts);
  static void printText(const AgentFacts& facts, const ConsoleText& text, std::ostream& out);

  // When the next scheduled run starts: the running agent's timer, else the
  // planner's answer from the last run.
  static std::optional<platform::TimePoint> nextRun(const AgentFacts& facts);
};

}  // namespace velmo::agent::console
