#include "agent/run/RunPolicyDiff.h"

#include "agent/run/RunPlanner.h"

namespace velmo::agent::run {
namespace {

// The IDs of `after` that `before` lacks and `excluded` doesn't name.
std::set<std::string> added(const std::set<std::string>& before, const std::set<std::string>& after,
                            const std::set<std::string>& excluded = {}) {
  std::set<std::string> result;
  for (const auto& id : after) {
    if (!before.count(id) && !excluded.count(id)) result.insert(id);
  }
  return result;
}

}  // namespace

RunPolicyDiff RunPolicyDiff::between(const policy::VelmoRunConfig& before,
                                     const policy::VelmoRunConfig& after,
                                     core::TimeInterval timerInterval) {
  RunPolicyDiff diff;
  // Only a change of the key moves the timer: the interval it has may have been read
  // more loosely at start.
  if (after.runInterval != before.runInterval) {
    core::TimeInterval target = RunPlanner::kDefaultInterval;
    if (after.runInterval) {
      const auto usable = RunPlanner::usableInterval(*after.runInterval);
      if (!usable) diff.refusedInterval = after.runInterval;
      target = usable.value_or(RunPlanner::kDefaultInterval);
    }
    if (target != timerInterval) diff.interval = target;
  }
  diff.addedInstallOrUpdate = added(before.installOrUpdate, after.installOrUpdate);
  diff.addedUpdateOnly = added(before.updateOnly, after.updateOnly, after.installOrUpdate);
  if (after.globalAllowWindows != before.globalAllowWindows ||
      after.globalBlackoutWindows != before.globalBlackoutWindows ||
      after.velmoTuesdayOnly != before.velmoTuesdayOnly) {
    diff.replan = Replan::windows;
  } else if (after.runSplay != before.runSplay) {
    // A new offset moves a plan made at a window's opening.
    diff.replan = Replan::splay;
  }
  return diff;
}

}  // namespace velmo::agent::run
