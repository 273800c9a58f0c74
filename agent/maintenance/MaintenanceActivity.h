#pragma once

#include <optional>

#include "platform/Clock.h"

namespace velmo::agent::maintenance {

// What housekeeping is doing, as the agent's status shows it.
struct MaintenanceActivity {
  // When the armed timer starts the next cycle; none while it is clear.
  std::optional<platform::TimePoint> nextDate{};
  bool running = false;

  bool operator==(const MaintenanceActivity&) const = default;
};

}  // namespace velmo::agent::maintenance
