#include "agent/run/RunPlanner.h"

#include <cmath>

#include "mdm/PreferenceConversions.h"

namespace velmo::agent::run {

RunPlanner::RunPlanner(std::optional<core::VelmoWindowPolicy> policy, core::TimeInterval interval)
    : policy_(std::move(policy)), interval_(interval) {}

RunPlanner::RunPlanner(const policy::VelmoRunConfig& config,
                       const platform::UserDefaults& userDefaults, const std::string& timeZoneId)
    : RunPlanner(config.windowPolicy(timeZoneId), startInterval(config, userDefaults)) {}

int RunPlanner::searchDays() const {
  return policy_ && policy_->usesMonthScopedWindows() ? 60 : 21;
}

platform::TimePoint RunPlanner::nextAllowedDate(platform::TimePoint date) const {
  if (!policy_) return date;
  return policy_->nextAllowedRunDate(date, searchDays());
}

RunPlanner::Plan RunPlanner::afterRun(platform::TimePoint end) const {
  const platform::TimePoint due = end + core::toDuration(interval_);
  return {due, nextAllowedDate(due)};
}

RunPlanner::Plan RunPlanner::fromLastRun(std::optional<platform::TimePoint> lastRun,
                                         platform::TimePoint now) const {
  if (!lastRun) return afterRun(now);
  const platform::TimePoint due =
      std::max(now, std::min(*lastRun, now) + core::toDuration(interval_));
  return {due, nextAllowedDate(due)};
}

std::optional<core::TimeInterval> RunPlanner::usableInterval(double seconds) {
  if (seconds > 0 && std::isfinite(seconds)) return core::TimeInterval(seconds);
  return std::nullopt;
}

core::TimeInterval RunPlanner::startInterval(const policy::VelmoRunConfig& config,
                                             const platform::UserDefaults& userDefaults) {
  if (config.runInterval) return usableInterval(*config.runInterval).value_or(kDefaultInterval);
  // The platform's double reading: a number, or a string that reads as one.
  const auto stored = userDefaults.object("RunInterval");
  const auto seconds = stored ? mdm::PreferenceConversions::real(*stored) : std::nullopt;
  return seconds ? usableInterval(*seconds).value_or(kDefaultInterval) : kDefaultInterval;
}

}  // namespace velmo::agent::run
