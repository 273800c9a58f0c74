#include "agent/run/RunConditionWatch.h"

#include <utility>

namespace velmo::agent::run {

RunConditionWatch::RunConditionWatch(Collaborators collaborators, std::function<void()> released)
    : collaborators_(collaborators),
      released_(std::move(released)),
      settle_(collaborators_.mainExecutor, collaborators_.clock, kSettle, [this] { settle(); }) {
  if (collaborators_.power) collaborators_.power->onChange([this] { settle_.trigger(); });
  if (collaborators_.network) collaborators_.network->onChange([this] { settle_.trigger(); });
}

RunConditions::Verdict RunConditionWatch::now(const policy::VelmoRunConfig& config) {
  config_ = config;
  const auto& c = collaborators_;
  const RunConditions::Observed seen{c.power ? c.power->current() : std::nullopt,
                                     c.network ? c.network->metered() : std::nullopt};
  sayUncheckable(config, seen);
  return RunConditions::decide(config, seen);
}

void RunConditionWatch::sayUncheckable(const policy::VelmoRunConfig& config,
                                       const RunConditions::Observed& seen) {
  const auto say = [this](const char* key, const char* service) {
    if (!saidUncheckable_.insert(key).second) return;
    logger_.info(std::string(key) + " can't be checked: no " + service +
                 " answers on the system bus. Runs go ahead as if it were met.");
  };
  if (!seen.power && config.runOnlyOnACPower) say("RunOnlyOnACPower", "power service");
  if (!seen.power && config.minimumBatteryPercent > 0) {
    say("MinimumBatteryPercent", "power service");
  }
  if (!seen.metered && config.runOnlyOnUnmeteredNetwork) {
    say("RunOnlyOnUnmeteredNetwork", "network service that knows the network's cost");
  }
}

void RunConditionWatch::hold(const std::string& what, const RunConditions::Verdict& verdict) {
  overdue_ = true;
  logger_.info(what + " not started: " + verdict.reason +
               ". It starts once that clears and the windows allow it.");
}

void RunConditionWatch::policyChanged(const policy::VelmoRunConfig& config) {
  config_ = config;
  if (overdue_) settle_.trigger();
}

void RunConditionWatch::settle() {
  if (!overdue_) return;
  const auto verdict = now(config_);
  if (!verdict.runsNow) return;
  overdue_ = false;
  logger_.info("The conditions for scheduled runs are met again; the overdue run may start.");
  released_();
}

}  // namespace velmo::agent::run
