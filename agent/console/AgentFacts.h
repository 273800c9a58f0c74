#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "agent/console/ConsoleInputs.h"
#include "agent/console/PolicyKey.h"
#include "agent/policy/VelmoRunConfig.h"
#include "agent/run/RunPlanner.h"
#include "agent/runner/RunCommandBuilder.h"
#include "core/deferrals/Deferral.h"
#include "core/items/UpdateItem.h"
#include "platform/AgentStatusReader.h"

namespace velmo::agent::console {

// Everything the console shows, read once: policy, state files, the running
// agent, and the planner the agent itself would plan with.
struct AgentFacts {
  platform::TimePoint now;
  std::string timeZone;
  policy::VelmoRunConfig config;
  run::RunPlanner planner;
  run::RunPolicy runPolicy{};
  std::vector<PolicyKey> policyKeys{};

  std::int64_t runCount = 0;
  std::optional<platform::TimePoint> lastRun{};
  std::int64_t maintenanceCount = 0;
  std::optional<platform::TimePoint> lastMaintenance{};
  // None when the file is missing or damaged; `problems` says which.
  std::optional<std::vector<core::UpdateItem>> items{};
  std::optional<core::DeferralMap> deferrals{};
  std::optional<platform::RunningAgent> agent{};
  // Files that are there but can't be read, each as one sentence.
  std::vector<std::string> problems{};
  // Whether anything at all could be read.
  bool readAnything = false;

  static AgentFacts gather(const ConsoleInputs& inputs);
};

}  // namespace velmo::agent::console
