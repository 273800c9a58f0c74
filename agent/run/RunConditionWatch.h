#pragma once

#include <functional>
#include <memory>
#include <set>
#include <string>

#include "agent/run/RunConditions.h"
#include "core/Debouncer.h"
#include "core/Executors.h"
#include "core/logging/CustomLogger.h"
#include "platform/Clock.h"
#include "platform/NetworkCost.h"
#include "platform/PowerSource.h"

namespace velmo::agent::run {

// Holds scheduled runs while the run policy's conditions on power and
// network are unmet, and says when a held run may start: the first time the
// conditions are met again, 5 quiet seconds after the last change (as after
// a wake). A user's check, queued installs, quit updates, comparisons and
// housekeeping never ask it. Lives on the main executor.
class RunConditionWatch {
 public:
  struct Collaborators {
    core::Executor mainExecutor;
    platform::Clock& clock;
    // None: the machine has no such service, and conditions on it count as met.
    platform::PowerSource* power = nullptr;
    platform::NetworkCost* network = nullptr;
  };

  static constexpr platform::Duration kSettle = std::chrono::seconds(5);

  // `released` is called once the conditions clear while a run is overdue.
  RunConditionWatch(Collaborators collaborators, std::function<void()> released);
  RunConditionWatch(const RunConditionWatch&) = delete;
  RunConditionWatch& operator=(const RunConditionWatch&) = delete;

  // The verdict for a scheduled run now. Says once, per key, a condition that
  // can't be checked because its service doesn't answer.
  RunConditions::Verdict now(const policy::VelmoRunConfig& config);
  // A scheduled run didn't start: one line says why; it is overdue until the
  // conditions clear.
  void hold(const std::string& what, const RunConditions::Verdict& verdict);
  // The policy changed: its conditions are judged afresh after the settle time.
  void policyChanged(const policy::VelmoRunConfig& config);

 private:
  void settle();
  void sayUncheckable(const policy::VelmoRunConfig& config, const RunConditions::Observed& seen);

  Collaborators collaborators_;
  std::function<void()> released_;
  core::CustomLogger logger_{"RunConditions"};
  policy::VelmoRunConfig config_;
  bool overdue_ = false;
  std::set<std::string> saidUncheckable_;
  core::Debouncer settle_;
};

}  // namespace velmo::agent::run
