#include "agent/run/RunPlanner.h"

#include <cmath>

#include "mdm/PreferenceConversions.h"

namespace velmo::agent::run {

RunPlanner::RunPlanner(std::optional<core::VelmoWindowPolicy> policy, core::TimeInterval interval,
                       core::TimeInterval splay)
    : policy_(std::move(policy)), interval_(interval), splay_(splay) {}

RunPlanner::RunPlanner(const policy::VelmoRunConfig& config,
                       const platform::UserDefaults& userDefaults, const std::string& timeZoneId,
                       core::TimeInterval splay)
    : RunPlanner(config.windowPolicy(timeZoneId), startInterval(config, userDefaults), splay) {}

platform::TimePoint RunPlanner::splayed(platform::TimePoint due, platform::TimePoint start) const {
  if (!policy_ || start <= due || splay_.count() <= 0) return start;
  const platform::Duration offset = core::toDuration(splay_);
  const auto stretches = policy_->stretches(start, start + offset + std::chrono::seconds(1));
  if (stretches.empty() ||
      stretches.front().verdict.kind != core::VelmoWindowPolicy::Verdict::Kind::allowed) {
    return start;
  }
  const platform::Duration length = stretches.front().end - start;
  if (length <= platform::Duration::zero()) return start;
  return start + (offset < length ? offset : offset % length);
}

int RunPlanner::searchDays() const {
  return policy_ && policy_->usesMonthScopedWindows() ? 60 : 21;
}

platform::TimePoint RunPlanner::nextAllowedDate(platform::TimePoint date) const {
  if (!policy_) return date;
  return policy_->nextAllowedRunDate(date, searchDays());
}

RunPlanner::Plan RunPlanner::afterRun(platform::TimePoint end) const {
  const platform::TimePoint due = end + core::toDuration(interval_);
  return {due, splayed(due, nextAllowedDate(due))};
}

RunPlanner::Plan RunPlanner::fromLastRun(std::optional<platform::TimePoint> lastRun,
                                         platform::TimePoint now) const {
  if (!lastRun) return afterRun(now);
  const platform::TimePoint due =
      std::max(now, std::min(*lastRun, now) + core::toDuration(interval_));
  return {due, splayed(due, nextAllowedDate(due))};
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
