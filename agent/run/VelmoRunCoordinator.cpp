#include "agent/run/VelmoRunCoordinator.h"

#include <algorithm>

#include <asio/post.hpp>

#include "agent/policy/PolicyAudit.h"
#include "agent/run/RunSplay.h"
#include "core/Lifetime.h"
#include "core/time/VelmoFormatters.h"
#include "mdm/PreferenceConversions.h"

namespace velmo::agent::run {
namespace {

constexpr const char* kAgentDomain = "com.marvenith.velmo-agent";

std::string label(std::optional<RescheduleReason> reason) {
  if (!reason) return "";
  switch (*reason) {
    case RescheduleReason::wake:
      return "wake";
    case RescheduleReason::mdmChange:
      return "MDM change event";
    case RescheduleReason::clockChange:
      return "clock change";
  }
  return "";
}

std::string friendly(platform::TimePoint date) { return core::VelmoFormatters::friendlyDate(date); }

std::string describe(platform::Duration duration) {
  return core::durationDescription(std::chrono::duration_cast<core::TimeInterval>(duration));
}

}  // namespace

std::shared_ptr<VelmoRunCoordinator> VelmoRunCoordinator::make(Collaborators collaborators) {
  std::shared_ptr<VelmoRunCoordinator> coordinator(
      new VelmoRunCoordinator(std::move(collaborators)));
  coordinator->start();
  return coordinator;
}

VelmoRunCoordinator::VelmoRunCoordinator(Collaborators collaborators)
    : collaborators_(std::move(collaborators)),
      wakeSubject_(
          collaborators_.mainExecutor, collaborators_.clock, kDebounce,
          [this] {
            logger_.debug("System woke up. Checking last Velmo Run and scheduling next run.");
            rescheduleFromLastRun(RescheduleReason::wake);
          }),
      mdmChangeObserver_({collaborators_.mainExecutor, collaborators_.clock,
                          collaborators_.distributedCenter, collaborators_.userDefaults},
                         kAgentDomain),
      // The observer has just read the policy; reading the files again would give the same.
      config_(mdmChangeObserver_.config().value()),
      machineId_(RunSplay::readMachineId(collaborators_.files, collaborators_.paths)),
      record_(collaborators_.files, collaborators_.paths.agentStateFile(),
              PlistManager::Retries{collaborators_.clock, collaborators_.mainExecutor}),
      gate_(collaborators_.mainExecutor, collaborators_.clock),
      conditions_({.mainExecutor = collaborators_.mainExecutor,
                   .clock = collaborators_.clock,
                   .power = collaborators_.power,
                   .network = collaborators_.network},
                  [this] { releaseOverdueRun(); }),
      pass_({.mainExecutor = collaborators_.mainExecutor,
             .clock = collaborators_.clock,
             .userDefaults = collaborators_.userDefaults,
             .managedPrefs = collaborators_.managedPrefs,
             .distributedCenter = collaborators_.distributedCenter,
             .runner = collaborators_.runner,
             .inventory = collaborators_.inventory,
             .record = record_,
             .conditions = conditions_,
             .config = config_,
             .uiController = uiController_,
             .currentTimeZone = collaborators_.currentTimeZone,
             .logger = logger_}),
      newItems_(collaborators_.managedPrefs, collaborators_.runner, config_, logger_) {
  // Said once here; the planner falls back silently.
  if (config_.runInterval && !RunPlanner::usableInterval(*config_.runInterval)) {
    warnUnusableInterval(*config_.runInterval);
  }
  timerInterval_ = RunPlanner::startInterval(config_, collaborators_.userDefaults);
}

void VelmoRunCoordinator::start() {
  gate_.setPendingObserver([weak = weak_from_this(),
                            main = collaborators_.mainExecutor](bool pending) {
    core::postLocked(main, weak, [pending](VelmoRunCoordinator& self) {
      self.record_.updateActivity([pending](RunActivity& activity) { activity.pending = pending; });
    });
  });
  workspaceToken_ = collaborators_.workspaceEvents.addObserver(
      [this](platform::WorkspaceEvent event) { handleWorkspaceEvent(event); });
  clockSteps_ = collaborators_.clock.observeWallClockSteps(
      collaborators_.mainExecutor, [this](platform::Duration step) { handleClockStep(step); });
  if (collaborators_.lifecycle) {
    cancellables_.push_back(collaborators_.lifecycle->subscribe([this](core::LifePhase phase) {
      if (phase != core::LifePhase::running) handleStop();
    }));
  }

  // Subscriptions die with the coordinator, so they may hold it by `this`.
  std::function<void(const policy::VelmoRunConfig&)> onPolicy =
      [this](const policy::VelmoRunConfig& fresh) { handlePolicyChange(fresh); };
  cancellables_.push_back(
      mdmChangeObserver_.config().subscribe(core::removeDuplicates(core::dropFirst(core::debounce(
          collaborators_.mainExecutor, collaborators_.clock, kDebounce, std::move(onPolicy))))));

  // Every start attempts a run, whatever the last run's time; a fleet
  // restarted together spreads by each machine's offset.
  const core::TimeInterval splay = splayOffset();
  if (splay.count() > 0) {
    logger_.info("Waiting " + core::durationDescription(splay) +
                 " (this machine's RunSplay offset) before the first Velmo Run.");
  }
  startTriggerRun(kFirstRunDelay + splay);
}

VelmoRunCoordinator::~VelmoRunCoordinator() {
  if (workspaceToken_) collaborators_.workspaceEvents.removeObserver(*workspaceToken_);
  logger_.debug("VelmoRunCoordinator deinitialized.");
}

void VelmoRunCoordinator::warnUnusableInterval(double seconds) const {
  logger_.warning("Ignoring RunInterval " +
                  mdm::PreferenceConversions::string(seconds).value_or("") +
                  ": it must be a number of seconds above 0. Using " +
                  core::durationDescription(defaultTimerInterval) + ".");
}

std::optional<platform::TimePoint> VelmoRunCoordinator::nextRunDate() const {
  return record_.currentActivity().nextRunDate;
}

// A stopping agent plans nothing more: the timer goes, the gate's watchdog
// with it, and the last run's record stays as the next start plans from.
void VelmoRunCoordinator::handleStop() {
  if (timer_) logger_.debug("The agent is stopping. Invalidating Velmo Run timer.");
  invalidateTimer();
  gate_.stop();
}

void VelmoRunCoordinator::handleClockStep(platform::Duration step) {
  const platform::Duration size = step < platform::Duration::zero() ? -step : step;
  if (size <= kClockStepTolerance || stopping()) return;
  // Without an armed timer a run is going on (it plans when it ends) or the
  // machine is on its way to sleep (the wake plans).
  if (!timer_) return;
  logger_.info(std::string("The system clock was set ") +
               (step < platform::Duration::zero() ? "back" : "ahead") + " by " + describe(size) +
               ". Replanning the next Velmo Run.");
  rescheduleFromLastRun(RescheduleReason::clockChange);
}

// The wait holds the coordinator weakly: one that is gone by then runs nothing.
void VelmoRunCoordinator::startTriggerRun(core::TimeInterval delay) {
  if (stopping()) return;
  const auto trigger = [](VelmoRunCoordinator& self) { return self.triggerRun(); };
  if (delay.count() <= 0) {
    core::startHolding(collaborators_.mainExecutor, weak_from_this(), logger_, trigger);
    return;
  }
  core::startHoldingAfter(collaborators_.mainExecutor,
                          collaborators_.clock.sleep(core::toDuration(delay)), weak_from_this(),
                          logger_, trigger);
}

asio::awaitable<void> VelmoRunCoordinator::triggerRun() {
  if (stopping()) co_return;
  logger_.debug("Submitting Velmo Run request to RunGate.");
  co_await gate_.request(gateOperation(false), kGateLimit);
}

asio::awaitable<void> VelmoRunCoordinator::requestRun(bool userInitiated) {
  const auto self = shared_from_this();
  logger_.debug(std::string("Submitting Velmo Run request (userInitiated=") +
                (userInitiated ? "true" : "false") + ") to RunGate.");
  co_await gate_.request(gateOperation(userInitiated), kGateLimit);
}

RunGate::Operation VelmoRunCoordinator::gateOperation(bool userInitiated) {
  return [weak = weak_from_this(), userInitiated] {
    return core::holding(weak, [userInitiated](VelmoRunCoordinator& self) {
      return self.runAndPlanNext(userInitiated);
    });
  };
}

asio::awaitable<void> VelmoRunCoordinator::runAndPlanNext(bool userInitiated) {
  const core::Executor main = collaborators_.mainExecutor;
  co_await core::runOn(main, performRun(userInitiated));
  co_await core::runOn(main, planNextRun());
  logger_.debug("RunGate operation finished; scheduled next run.");
}

asio::awaitable<void> VelmoRunCoordinator::planNextRun() {
  scheduleNextRun();
  co_return;
}

void VelmoRunCoordinator::invalidateTimer() {
  timer_.reset();
  record_.updateActivity([](RunActivity& activity) { activity.nextRunDate.reset(); });
}

void VelmoRunCoordinator::scheduleNextRun() {
  invalidateTimer();
  const platform::TimePoint now = collaborators_.clock.now();
  const RunPlanner::Plan plan = planner().afterRun(now);
  logDeferral(plan, std::nullopt);
  const auto delta = plan.start - now;
  if (delta <= platform::Duration::zero()) {
    logger_.info("Next allowed Velmo Run time is now or in the past. Running immediately.");
    startTriggerRun(core::TimeInterval(0));
    return;
  }
  scheduleTimer(plan.start, std::chrono::duration_cast<core::TimeInterval>(delta), std::nullopt);
}

void VelmoRunCoordinator::rescheduleFromLastRun(std::optional<RescheduleReason> reason) {
  invalidateTimer();
  const platform::TimePoint now = collaborators_.clock.now();
  const auto last = record_.lastRun();
  if (!last) {
    scheduleNextRun();
    return;
  }
  platform::TimePoint lastRun = *last;
  if (lastRun > now) {
    // Stamped by a clock that was wrong once: planning from it would stop
    // runs until that date has passed.
    logger_.warning("The last Velmo Run is recorded at " + friendly(lastRun) +
                    ", in the future; planning from now.");
    lastRun = now;
  }
  const RunPlanner::Plan plan = planner().fromLastRun(lastRun, now);
  logDeferral(plan, reason);
  const auto delta = plan.start - now;
  if (delta <= platform::Duration::zero()) {
    logger_.info("Next scheduled Velmo Run time is now or in the past. Running immediately.");
    startTriggerRun(core::TimeInterval(0));
    return;
  }
  scheduleTimer(plan.start, std::chrono::duration_cast<core::TimeInterval>(delta), reason);
  logger_.debug("Last Velmo Run was " + describe(now - lastRun) + " ago.");
}

RunPlanner VelmoRunCoordinator::planner() const {
  return RunPlanner(effectivePolicy(), timerInterval_, splayOffset());
}

core::TimeInterval VelmoRunCoordinator::splayOffset() const {
  return RunSplay::offset(machineId_, config_.runSplay);
}

void VelmoRunCoordinator::logDeferral(const RunPlanner::Plan& plan,
                                      std::optional<RescheduleReason> reason) const {
  if (plan.start <= plan.due) return;
  std::string line = "Global Velmo Run windows deferred the next run";
  if (reason) line += " after " + label(reason);
  line += " from " + friendly(plan.due) + " to " + friendly(plan.start) +
          " (additional delay: " + describe(plan.start - plan.due) + ").";
  logger_.debug(line);
}

// The timer aims at the planned moment itself, not at the delay from a later
// reading of the clock: what status shows is when the run starts.
void VelmoRunCoordinator::scheduleTimer(platform::TimePoint fireDate, core::TimeInterval delta,
                                        std::optional<RescheduleReason> reason) {
  if (stopping()) return;
  std::string line = "Scheduled next Velmo Run ";
  if (reason) line += "after " + label(reason) + " ";
  line += "at " + friendly(fireDate) + " (in " + core::durationDescription(delta) + ").";
  logger_.info(line);
  const auto wait = std::max(fireDate - collaborators_.clock.now(), platform::Duration::zero());
  // Replacing the handle cancels any timer still armed: two never coexist.
  timer_ = collaborators_.clock.scheduleAfter(wait, collaborators_.mainExecutor, [this] {
    record_.updateActivity([](RunActivity& activity) { activity.nextRunDate.reset(); });
    startTriggerRun(core::TimeInterval(0));
  });
  record_.updateActivity([fireDate](RunActivity& activity) { activity.nextRunDate = fireDate; });
}

std::optional<core::VelmoWindowPolicy> VelmoRunCoordinator::effectivePolicy() const {
  return config_.windowPolicy(collaborators_.currentTimeZone());
}

void VelmoRunCoordinator::handleWorkspaceEvent(platform::WorkspaceEvent event) {
  switch (event) {
    case platform::WorkspaceEvent::willSleep:
      logger_.debug("System is going to sleep. Invalidating Velmo Run timer.");
      invalidateTimer();
      return;
    case platform::WorkspaceEvent::willPowerOff:
      logger_.debug("System is powering off. Invalidating Velmo Run timer.");
      invalidateTimer();
      return;
    case platform::WorkspaceEvent::didWake:
      wakeSubject_.trigger();
      return;
    case platform::WorkspaceEvent::powerOffCancelled:
      // The power-off cleared the plan; the machine goes on as after a wake.
      logger_.debug("System power-off was cancelled. Replanning the Velmo Run timer.");
      wakeSubject_.trigger();
      return;
  }
  logger_.debug("Received unexpected workspace notification: " +
                std::to_string(static_cast<int>(event)));
}

// Runs on the main executor; the gate operation brings it there.
asio::awaitable<void> VelmoRunCoordinator::performRun(bool userInitiated) {
  if (stopping()) {
    // Requests that were waiting at the gate: each is dropped, one line says so.
    if (!std::exchange(refusalSaid_, true)) {
      logger_.info("The agent is stopping: " + RunPass::runLabel(userInitiated) +
                   " not started, nor any other until the agent is back.");
    }
    co_return;
  }
  co_await pass_.run(userInitiated);
}

void VelmoRunCoordinator::handlePolicyChange(const policy::VelmoRunConfig& fresh) {
  // The history of each key, before the steps' own lines.
  for (const auto& change : policy::PolicyAudit::changes(config_, fresh)) {
    const platform::LogField fields[] = {{"VELMO_POLICY_KEY", change.key},
                                         {"VELMO_POLICY_OLD", change.before},
                                         {"VELMO_POLICY_NEW", change.after}};
    logger_.info(change.line, fields);
  }
  // Steps in this order; one doesn't end the others. `config_` is still the
  // old policy until the last step, so a replan here uses the old windows.
  const RunPolicyDiff diff = RunPolicyDiff::between(config_, fresh, timerInterval_);
  if (diff.refusedInterval) warnUnusableInterval(*diff.refusedInterval);
  if (diff.interval) applyInterval(*diff.interval);
  startAddedItems(diff, fresh);
  config_ = fresh;
  conditions_.policyChanged(fresh);
  if (diff.replan == RunPolicyDiff::Replan::windows) {
    logger_.info(
        "Global Velmo Run windows configuration changed; rescheduling next run based on new "
        "window policy.");
  }
  if (diff.replan != RunPolicyDiff::Replan::none) {
    rescheduleFromLastRun(RescheduleReason::mdmChange);
  }
}

void VelmoRunCoordinator::applyInterval(core::TimeInterval interval) {
  logger_.info(std::string("Velmo Run interval ") +
               (timerInterval_ < interval ? "increased" : "decreased") + ": " +
               core::durationDescription(timerInterval_) + " \u2192 " +
               core::durationDescription(interval) + ".");
  timerInterval_ = interval;
  rescheduleFromLastRun(RescheduleReason::mdmChange);
}

void VelmoRunCoordinator::releaseOverdueRun() {
  record_.updateActivity([](RunActivity& activity) { activity.heldBy.clear(); });
  if (stopping()) return;
  const auto policy = effectivePolicy();
  if (policy && !policy->isWithinAllowedWindow(collaborators_.clock.now())) return;
  startTriggerRun(core::TimeInterval(0));
}

// New IDs install at once, unless the conditions hold scheduled runs: the
// overdue run then installs them with the rest.
void VelmoRunCoordinator::startAddedItems(const RunPolicyDiff& diff,
                                          const policy::VelmoRunConfig& fresh) {
  if (!diff.addedInstallOrUpdate.empty() || !diff.addedUpdateOnly.empty()) {
    if (const auto verdict = conditions_.now(fresh); !verdict.runsNow) {
      conditions_.hold("The new items' installs", verdict);
      record_.updateActivity([&](RunActivity& activity) { activity.heldBy = verdict.reason; });
      return;
    }
  }
  if (const auto& added = diff.addedInstallOrUpdate; !added.empty()) {
    logger_.info("New install or update items detected: " + NewItemsInstaller::joinedIDs(added));
    core::startHolding(collaborators_.mainExecutor, weak_from_this(), logger_,
                       [added](VelmoRunCoordinator& self) {
                         return self.newItems_.processInstallOrUpdateItems(added);
                       });
  }
  if (const auto& added = diff.addedUpdateOnly; !added.empty()) {
    logger_.info("New update-only items detected: " + NewItemsInstaller::joinedIDs(added));
    core::startHolding(collaborators_.mainExecutor, weak_from_this(), logger_,
                       [added](VelmoRunCoordinator& self) {
                         return self.newItems_.processUpdateOnlyItems(added);
                       });
  }
}

}  // namespace velmo::agent::run
