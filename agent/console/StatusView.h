#pragma once

#include <sys/types.h>

#include <chrono>
#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "agent/console/AgentFacts.h"
#include "agent/console/PolicyKey.h"
#include "core/items/UpdateItem.h"
#include "core/time/TimeInterval.h"
#include "platform/Clock.h"

namespace velmo::agent::console {

// What `status` shows, decided once from the facts; the text and the JSON
// are two renderings of it.
struct StatusView {
  struct Agent {
    std::string version{};
    std::optional<pid_t> pid{};
    platform::TimePoint startedAt{};
    // Negative when the agent's clock ran ahead of ours.
    std::chrono::seconds up{};
  };
  struct Runs {
    std::int64_t count = 0;
    std::optional<platform::TimePoint> last{};
    core::TimeInterval interval{};
    core::TimeInterval splayOffset{};
    bool inProgress = false;
    std::optional<platform::TimePoint> startedAt{};
    bool pending = false;
    // Why the running agent holds scheduled runs now; empty when it doesn't.
    std::string heldBy{};
  };
  struct Windows {
    // False when no window applies at all: every moment is allowed.
    bool restricted = false;
    bool allowedNow = true;
    // Why not, when not allowed now.
    std::string reason{};
    std::optional<platform::TimePoint> nextAllowed{};
    bool userRunsAnyTime = true;
  };
  struct Maintenance {
    std::int64_t count = 0;
    std::optional<platform::TimePoint> last{};
    // Known only from a running agent.
    std::optional<platform::TimePoint> next{};
    bool running = false;
  };
  // Deferrals of one app at one version, summed over its records.
  struct Deferred {
    std::string app{};
    std::string version{};
    std::int64_t count = 0;
    // The latest deferral its records keep.
    std::optional<platform::TimePoint> last{};
  };

  platform::TimePoint now{};
  std::string timeZone{};
  // None when no agent answers: the times are then the planner's.
  std::optional<Agent> agent{};
  std::optional<platform::TimePoint> nextRun{};
  Runs runs{};
  Windows windows{};
  Maintenance maintenance{};
  std::vector<PolicyKey> policy{};
  // What scheduled runs also wait for: power and network, with their keys.
  std::vector<std::string> conditions{};
  std::vector<core::UpdateItem> items{};
  // By app, then version.
  std::vector<Deferred> deferrals{};
  std::vector<std::string> problems{};

  static StatusView from(const AgentFacts& facts);
};

}  // namespace velmo::agent::console
