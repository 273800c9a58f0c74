#pragma once

#include <optional>

#include "agent/policy/VelmoRunConfig.h"
#include "core/time/TimeInterval.h"
#include "core/time/VelmoWindowPolicy.h"
#include "platform/Clock.h"
#include "platform/UserDefaults.h"

namespace velmo::agent::run {

// When scheduled runs happen, as functions of the policy, the interval, the
// last run and the present moment. The run timer plans with these, and so
// does the console, so what it shows is what the agent will do.
class RunPlanner {
 public:
  static constexpr core::TimeInterval kDefaultInterval{14400.0};

  // No policy means every moment is allowed. `splay` is this machine's
  // offset for runs that the windows move (RunSplay).
  RunPlanner(std::optional<core::VelmoWindowPolicy> policy, core::TimeInterval interval,
             core::TimeInterval splay = core::TimeInterval(0));
  // The windows in force in `timeZoneId`, the interval the agent starts with,
  // and this machine's splay.
  RunPlanner(const policy::VelmoRunConfig& config, const platform::UserDefaults& userDefaults,
             const std::string& timeZoneId, core::TimeInterval splay = core::TimeInterval(0));

  const std::optional<core::VelmoWindowPolicy>& policy() const { return policy_; }
  core::TimeInterval interval() const { return interval_; }
  core::TimeInterval splay() const { return splay_; }

  // A planned run: when the interval makes it due, and when the windows let it start.
  struct Plan {
    platform::TimePoint due;
    platform::TimePoint start;
  };

  // How far a search looks ahead: further when windows name weeks of the month.
  int searchDays() const;
  // The first moment the windows allow at or after `date`; `date` itself when
  // nothing is allowed within the search.
  platform::TimePoint nextAllowedDate(platform::TimePoint date) const;
  // A run the windows moved from `due` to `start` starts the splay later,
  // kept inside the allowed stretch: a shorter one wraps the offset within its length.
  platform::TimePoint splayed(platform::TimePoint due, platform::TimePoint start) const;
  // The next run after one that ended at `end`.
  Plan afterRun(platform::TimePoint end) const;
  // The next run planned from the last one at `now` (after a wake or a policy
  // change); with no last run, as after a run ending now. A last run in the
  // future counts as now.
  Plan fromLastRun(std::optional<platform::TimePoint> lastRun, platform::TimePoint now) const;

  // A configured interval the timer can use: above 0 and finite.
  static std::optional<core::TimeInterval> usableInterval(double seconds);
  // The interval at start: the policy's when usable, else the user
  // defaults' "RunInterval" read as the platform reads a double, else the default.
  static core::TimeInterval startInterval(const policy::VelmoRunConfig& config,
                                          const platform::UserDefaults& userDefaults);

 private:
  std::optional<core::VelmoWindowPolicy> policy_;
  core::TimeInterval interval_;
  core::TimeInterval splay_;
};

}  // namespace velmo::agent::run
