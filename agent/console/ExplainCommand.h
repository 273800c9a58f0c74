#pragma once

#include <optional>
#include <ostream>
#include <string>
#include <vector>

#include <nlohmann/json.hpp>

#include "agent/console/AgentFacts.h"
#include "agent/console/ConsoleText.h"
#include "core/time/VelmoWindowPolicy.h"

namespace velmo::agent::console {

// `velmo-agent explain`: over a span of days, when scheduled runs start and
// when a user's run may, each blocked stretch with its reason, a week
// picture, and the tool's command lines the policy gives now.
class ExplainCommand {
 public:
  static constexpr int kDefaultDays = 7;
  static constexpr int kMaxDays = 366;
  // Enough for every run of a week at a 15-minute interval.
  static constexpr std::size_t kMaxScheduledRuns = 700;

  struct ScheduledRun {
    platform::TimePoint at;
    // False when no allowed moment lies within the agent's search: the timer
    // fires then and the run is refused.
    bool allowed = true;
  };

  struct Explanation {
    platform::TimePoint from;
    platform::TimePoint to;
    std::vector<ScheduledRun> scheduledRuns;
    bool moreRuns = false;
    std::vector<core::VelmoWindowPolicy::Stretch> stretches;
  };

  // The agent's own plan from `from`: the first run as planned from the last
  // recorded one, each further one an interval after the one before.
  static Explanation explain(const AgentFacts& facts, platform::TimePoint from, int days,
                             std::size_t maxRuns = kMaxScheduledRuns);

  static nlohmann::json json(const AgentFacts& facts, const Explanation& explanation,
                             const std::string& tool);
  static void printText(const AgentFacts& facts, const Explanation& explanation,
                        const std::string& tool, const ConsoleText& text, std::ostream& out);
};

}  // namespace velmo::agent::console
