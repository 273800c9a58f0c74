#pragma once

#include <optional>
#include <set>
#include <string>

#include "agent/policy/VelmoRunConfig.h"
#include "core/time/TimeInterval.h"

namespace velmo::agent::run {

// What a new run policy asks of the run coordinator, worked out from the
// policy in force and the new one alone. The coordinator carries out the
// steps in the order of the fields.
struct RunPolicyDiff {
  // What moves the planned run once the new policy is in force.
  enum class Replan { none, splay, windows };

  // A newly configured interval that is no number of seconds above 0: the
  // default stands in for it, with a warning.
  std::optional<double> refusedInterval{};
  // The timer's new interval, when it differs from the one in use.
  std::optional<core::TimeInterval> interval{};
  // IDs new to InstallOrUpdate, for an install at once.
  std::set<std::string> addedInstallOrUpdate{};
  // IDs new to UpdateOnly that InstallOrUpdate doesn't name now.
  std::set<std::string> addedUpdateOnly{};
  Replan replan = Replan::none;

  static RunPolicyDiff between(const policy::VelmoRunConfig& before,
                               const policy::VelmoRunConfig& after,
                               core::TimeInterval timerInterval);

  bool operator==(const RunPolicyDiff&) const = default;
};

}  // namespace velmo::agent::run
