#pragma once

#include <cstdint>
#include <optional>
#include <string>

#include "core/values/Time.h"

namespace velmo::platform {

// What the running agent tells every local user about itself. Read-only to
// them: nothing they send changes it.
struct AgentStatus {
  std::string version{};
  core::TimePoint startedAt{};
  // The armed run timer; none while it is clear (asleep, or a run going on).
  std::optional<core::TimePoint> nextRunDate{};
  bool runInProgress = false;
  std::optional<core::TimePoint> runStartedAt{};
  // A request came during the run: the gate runs one more pass before letting go.
  bool runPending = false;
  std::optional<core::TimePoint> lastRunDate{};
  std::int64_t runCount = 0;
  // Why the run policy's conditions hold scheduled runs now; empty when they don't.
  std::string runsHeldBy{};
  std::optional<core::TimePoint> nextMaintenanceDate{};
  bool maintenanceRunning = false;

  bool operator==(const AgentStatus&) const = default;
};

}  // namespace velmo::platform
