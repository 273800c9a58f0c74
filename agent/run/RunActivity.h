#pragma once

#include <cstdint>
#include <optional>
#include <string>

#include "platform/Clock.h"

namespace velmo::agent::run {

// What update runs are doing, as the agent's status shows it.
struct RunActivity {
  // When the armed run timer fires; none while it is clear.
  std::optional<platform::TimePoint> nextRunDate{};
  bool inProgress = false;
  // What the run in progress is: a user's request or the timer's.
  bool userInitiated = false;
  std::optional<platform::TimePoint> startedAt{};
  // A request came during the run, so the gate runs one more pass.
  bool pending = false;
  std::optional<platform::TimePoint> lastRunDate{};
  std::int64_t runCount = 0;
  // Why scheduled runs are held now by the policy's conditions; empty when not.
  std::string heldBy{};

  bool operator==(const RunActivity&) const = default;
};

}  // namespace velmo::agent::run
