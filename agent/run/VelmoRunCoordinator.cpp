#include "agent/run/VelmoRunCoordinator.h"

#include <algorithm>
#include <cmath>
#include <deque>

#include <asio/experimental/awaitable_operators.hpp>
#include <asio/post.hpp>

#include "agent/policy/PolicyAudit.h"
#include "agent/run/RunSplay.h"
#include "core/logging/VelmoFormatters.h"
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

std::string runLabel(bool userInitiated) {
  return userInitiated ? "User-Initiated Velmo Run" : "Scheduled Velmo Run";
}

std::string friendly(platform::TimePoint date) { return core::VelmoFormatters::friendlyDate(date); }

std::string describe(platform::Duration duration) {
  return core::durationDescription(std::chrono::duration_cast<core::TimeInterval>(duration));
}

std::string joinedIDs(const std::vector<std::string>& ids) {
  std::string text;
  for (const auto& id : ids) {
    if (!text.empty()) text += ", ";
    text += id;
  }
  return text;
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
      plistManager_(collaborators_.files, collaborators_.paths.agentStateFile(),
                    PlistManager::Retries{collaborators_.clock, collaborators_.mainExecutor}),
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
      gate_(collaborators_.mainExecutor, collaborators_.clock) {
  const auto count = plistManager_.value(PlistKey::updateTaskRunCount);
  const auto last = plistManager_.value(PlistKey::lastUpdateTaskRun);
  RunActivity initial;
  if (const auto* number = count ? count->getIf<std::int64_t>() : nullptr) {
    initial.runCount = *number;
  }
  if (const auto* date = last ? last->getIf<core::PlistDate>() : nullptr) {
    initial.lastRunDate = date->value;
  }
  activity_.set(initial);
  // Said once here; the planner falls back silently.
  if (config_.runInterval) sanitizedInterval(*config_.runInterval);
  timerInterval_ = RunPlanner::startInterval(config_, collaborators_.userDefaults);
}

void VelmoRunCoordinator::start() {
  gate_.setPendingObserver(
      [weak = weak_from_this(), main = collaborators_.mainExecutor](bool pending) {
        asio::post(main, [weak, pending] {
          if (auto self = weak.lock()) {
            self->updateActivity([pending](RunActivity& activity) { activity.pending = pending; });
          }
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

core::TimeInterval VelmoRunCoordinator::sanitizedInterval(double seconds) const {
  if (const auto usable = RunPlanner::usableInterval(seconds)) return *usable;
  logger_.warning("Ignoring RunInterval " +
                  mdm::PreferenceConversions::string(seconds).value_or("") +
                  ": it must be a number of seconds above 0. Using " +
                  core::durationDescription(defaultTimerInterval) + ".");
  return defaultTimerInterval;
}

std::optional<platform::TimePoint> VelmoRunCoordinator::nextRunDate() const {
  return activity_.value().nextRunDate;
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
  core::startTask(
      collaborators_.mainExecutor,
      [](std::weak_ptr<VelmoRunCoordinator> weak, platform::Clock& clock,
         core::TimeInterval delay) -> asio::awaitable<void> {
        if (delay.count() > 0) co_await clock.sleep(core::toDuration(delay));
        auto self = weak.lock();
        if (self && !self->stopping()) co_await self->triggerRun(core::TimeInterval(0));
      }(weak_from_this(), collaborators_.clock, delay),
      logger_);
}

asio::awaitable<void> VelmoRunCoordinator::triggerRun(core::TimeInterval delay) {
  const std::weak_ptr<VelmoRunCoordinator> weak = weak_from_this();
  if (delay.count() > 0) {
    platform::Clock& clock = collaborators_.clock;
    co_await clock.sleep(core::toDuration(delay));
  }
  const auto self = weak.lock();
  if (!self) co_return;
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
  return [weak = weak_from_this(), userInitiated]() -> asio::awaitable<void> {
    return
        [](std::weak_ptr<VelmoRunCoordinator> weak, bool userInitiated) -> asio::awaitable<void> {
          const auto self = weak.lock();
          if (!self) co_return;
          const core::Executor main = self->collaborators_.mainExecutor;
          co_await core::runOn(main, self->performRun(userInitiated));
          co_await core::runOn(
              main, [](std::shared_ptr<VelmoRunCoordinator> self) -> asio::awaitable<void> {
                self->scheduleNextRun();
                co_return;
              }(self));
          self->logger_.debug("RunGate operation finished; scheduled next run.");
        }(weak, userInitiated);
  };
}

void VelmoRunCoordinator::invalidateTimer() {
  timer_.reset();
  updateActivity([](RunActivity& activity) { activity.nextRunDate.reset(); });
}

void VelmoRunCoordinator::updateActivity(const std::function<void(RunActivity&)>& change) {
  RunActivity fresh = activity_.value();
  change(fresh);
  if (fresh != activity_.value()) activity_.set(std::move(fresh));
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
  const auto stored = plistManager_.value(PlistKey::lastUpdateTaskRun);
  const auto* last = stored ? stored->getIf<core::PlistDate>() : nullptr;
  if (!last) {
    scheduleNextRun();
    return;
  }
  platform::TimePoint lastRun = last->value;
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
    updateActivity([](RunActivity& activity) { activity.nextRunDate.reset(); });
    startTriggerRun(core::TimeInterval(0));
  });
  updateActivity([fireDate](RunActivity& activity) { activity.nextRunDate = fireDate; });
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

asio::awaitable<bool> VelmoRunCoordinator::shouldSkipRun() {
  const bool configured = co_await collaborators_.managedPrefs.boolValue(
      "SkipFirstVelmoAgentRun", mdm::ManagedDomain::velmoAgent, false);
  if (!configured) co_return false;
  const auto count = plistManager_.value(PlistKey::updateTaskRunCount);
  const auto* number = count ? count->getIf<std::int64_t>() : nullptr;
  co_return number ? *number == 0 : true;
}

void VelmoRunCoordinator::recordRun(std::int64_t runNumber, platform::TimePoint date) {
  plistManager_.setValue(core::PlistValue(runNumber), PlistKey::updateTaskRunCount);
  plistManager_.setValue(core::PlistValue(core::PlistDate{date}), PlistKey::lastUpdateTaskRun);
  updateActivity([runNumber, date](RunActivity& activity) {
    activity.runCount = runNumber;
    activity.lastRunDate = date;
  });
}

bool VelmoRunCoordinator::windowsAllow(bool userInitiated, platform::TimePoint now) const {
  const auto policy = effectivePolicy();
  if (!policy) return true;
  if (userInitiated) {
    if (config_.allowUserInitiatedOutsideWindows || policy->isWithinAllowedWindow(now)) return true;
    logger_.info(
        "User\u2011initiated Velmo Run requested outside configured windows and overrides are "
        "disabled. Skipping run.");
    return false;
  }
  if (policy->isWithinAllowedWindow(now)) return true;
  logger_.info("Current time is outside allowed Velmo Run windows. Skipping scheduled run.");
  const platform::TimePoint next = policy->nextAllowedRunDate(now, kRefusedRunSearchDays);
  if (next > now) {
    logger_.info("Next allowed Velmo Run window begins at " + friendly(next) + " (in " +
                 describe(next - now) + ").");
  }
  return false;
}

// Runs on the main executor; the gate operation brings it there.
asio::awaitable<void> VelmoRunCoordinator::performRun(bool userInitiated) {
  if (stopping()) {
    // Requests that were waiting at the gate: each is dropped, one line says so.
    if (!std::exchange(refusalSaid_, true)) {
      logger_.info("The agent is stopping: " + runLabel(userInitiated) +
                   " not started, nor any other until the agent is back.");
    }
    co_return;
  }
  const platform::TimePoint now = collaborators_.clock.now();
  const platform::ElapsedPoint began = collaborators_.clock.elapsed();
  const auto count = plistManager_.value(PlistKey::updateTaskRunCount);
  const auto* stored = count ? count->getIf<std::int64_t>() : nullptr;
  const std::int64_t runNumber = (stored ? *stored : 0) + 1;
  const bool skip = co_await shouldSkipRun();

  if (!windowsAllow(userInitiated, now)) co_return;

  if (skip) {
    logger_.info("Configured to skip the first Velmo Run.");
    recordRun(runNumber, collaborators_.clock.now());
    co_return;
  }

  const std::string name = runLabel(userInitiated);
  logger_.info(name + " #" + std::to_string(runNumber) + " started.");
  updateActivity([now, userInitiated](RunActivity& activity) {
    activity.inProgress = true;
    activity.userInitiated = userInitiated;
    activity.startedAt = now;
  });
  // Cleared however the run ends.
  const auto over = [](VelmoRunCoordinator* self) {
    self->updateActivity([](RunActivity& activity) {
      activity.inProgress = false;
      activity.userInitiated = false;
      activity.startedAt.reset();
    });
  };
  const std::unique_ptr<VelmoRunCoordinator, decltype(over)> inProgress(this, over);
  co_await compareListedItems();

  co_await runJob(userInitiated);

  const platform::TimePoint end = collaborators_.clock.now();
  logger_.info(name + " #" + std::to_string(runNumber) + " finished in " +
               describe(collaborators_.clock.elapsed() - began) + ".");
  recordRun(runNumber, end);
}

asio::awaitable<void> VelmoRunCoordinator::runJob(bool userInitiated) {
  const VelmoRunJob::Collaborators jobCollaborators{
      collaborators_.mainExecutor,      collaborators_.userDefaults, collaborators_.managedPrefs,
      collaborators_.distributedCenter, collaborators_.runner,       collaborators_.inventory};
  auto job = std::make_unique<VelmoRunJob>(jobCollaborators, userInitiated);
  co_await job->run();
}

asio::awaitable<void> VelmoRunCoordinator::compareListedItems() {
  const auto controller = uiController_.lock();
  if (!controller) {
    logger_.warning("UIController reference is nil, skipping velmo comparison.");
    co_return;
  }
  // A snapshot: items listed later wait for the next run. Every item counts,
  // whatever its state.
  auto pending = std::make_shared<std::deque<std::string>>();
  for (const auto& item : controller->updateItems()) pending->push_back(item.id);
  // Three workers take the next id as soon as their comparison ends, so at
  // most three run at once; the run goes on when all three are done.
  using namespace asio::experimental::awaitable_operators;
  co_await (compareWorker(pending) && compareWorker(pending) && compareWorker(pending));
}

asio::awaitable<void> VelmoRunCoordinator::compareWorker(
    std::shared_ptr<std::deque<std::string>> pending) {
  while (!pending->empty()) {
    const std::string id = pending->front();
    pending->pop_front();
    const int exitCode = co_await compareItem(id, kCompareTimeout);
    handleCompareResult(id, exitCode);
  }
}

asio::awaitable<int> VelmoRunCoordinator::compareItem(std::string id, core::TimeInterval timeout) {
  std::vector<std::string> arguments{"compare", std::move(id), "--fail"};
  const std::optional<core::TimeInterval> limit = timeout;
  co_return co_await collaborators_.runner.run(std::move(arguments), limit);
}

void VelmoRunCoordinator::handleCompareResult(const std::string& id, int exitCode) {
  const auto controller = uiController_.lock();
  if (!controller) return;
  const auto& items = controller->updateItems();
  const auto found = std::find_if(items.begin(), items.end(),
                                  [&](const core::UpdateItem& item) { return item.id == id; });
  if (found == items.end()) {
    logger_.debug("Discarding compare result; item with ID " + id + " no longer present.");
    return;
  }
  switch (exitCode) {
    case kCompareNothingDue: {
      logger_.debug("Velmo compare completed successfully for " + id +
                    ", scheduling removal from list.");
      const core::UpdateItem item = *found;
      controller->scheduleRemoval(item, core::TimeInterval(0.0));
      controller->postRemoveDeferrals(item);
      return;
    }
    case kCompareUpdateAvailable:
      logger_.debug("Velmo compare indicates an update is available for " + id + ".");
      return;
    case VelmoRunner::kTimedOut:
      logger_.warning("Velmo compare timed out for " + id + "; leaving item in list.");
      return;
    case VelmoRunner::kNotStarted:
      return;
    default:
      logger_.error("Velmo compare failed for " + id + " with exit code " +
                    std::to_string(exitCode) + ".");
  }
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
  if (fresh.runInterval != config_.runInterval) {
    const core::TimeInterval target =
        fresh.runInterval ? sanitizedInterval(*fresh.runInterval) : defaultTimerInterval;
    if (target != timerInterval_) {
      logger_.info(std::string("Velmo Run interval ") +
                   (timerInterval_ < target ? "increased" : "decreased") + ": " +
                   core::durationDescription(timerInterval_) + " \u2192 " +
                   core::durationDescription(target) + ".");
      timerInterval_ = target;
      rescheduleFromLastRun(RescheduleReason::mdmChange);
    }
  }

  if (fresh.installOrUpdate != config_.installOrUpdate) {
    std::set<std::string> added;
    for (const auto& id : fresh.installOrUpdate) {
      if (!config_.installOrUpdate.count(id)) added.insert(id);
    }
    if (!added.empty()) {
      logger_.info("New install or update items detected: " +
                   joinedIDs({added.begin(), added.end()}));
      core::startHolding(
          collaborators_.mainExecutor, weak_from_this(), logger_,
          [added](VelmoRunCoordinator& self) { return self.processInstallOrUpdateItems(added); });
    }
  }

  if (fresh.updateOnly != config_.updateOnly) {
    std::set<std::string> added;
    for (const auto& id : fresh.updateOnly) {
      if (!config_.updateOnly.count(id) && !fresh.installOrUpdate.count(id)) added.insert(id);
    }
    if (!added.empty()) {
      logger_.info("New update-only items detected: " + joinedIDs({added.begin(), added.end()}));
      core::startHolding(
          collaborators_.mainExecutor, weak_from_this(), logger_,
          [added](VelmoRunCoordinator& self) { return self.processUpdateOnlyItems(added); });
    }
  }

  const bool windowsChanged = fresh.globalAllowWindows != config_.globalAllowWindows ||
                              fresh.globalBlackoutWindows != config_.globalBlackoutWindows ||
                              fresh.velmoTuesdayOnly != config_.velmoTuesdayOnly;
  const bool splayChanged = fresh.runSplay != config_.runSplay;
  config_ = fresh;
  if (!windowsChanged) {
    // A new offset moves a plan made at a window's opening.
    if (splayChanged) rescheduleFromLastRun(RescheduleReason::mdmChange);
    return;
  }
  logger_.info(
      "Global Velmo Run windows configuration changed; rescheduling next run based on new "
      "window policy.");
  rescheduleFromLastRun(RescheduleReason::mdmChange);
}

asio::awaitable<void> VelmoRunCoordinator::processInstallOrUpdateItems(std::set<std::string> ids) {
  if (ids.empty()) co_return;
  const std::vector<std::string> list(ids.begin(), ids.end());
  logger_.info("Processing new install or update items: " + joinedIDs(list));
  std::vector<std::string> arguments{"install"};
  arguments.insert(arguments.end(), list.begin(), list.end());
  co_await runNewItems(std::move(arguments), joinedIDs(list));
}

asio::awaitable<void> VelmoRunCoordinator::processUpdateOnlyItems(std::set<std::string> ids) {
  if (config_.updateAll || ids.empty()) co_return;
  const std::vector<std::string> list(ids.begin(), ids.end());
  logger_.info("Processing new update-only items: " + joinedIDs(list));
  std::vector<std::string> arguments{"install"};
  arguments.insert(arguments.end(), list.begin(), list.end());
  arguments.push_back("--update-only");
  co_await runNewItems(std::move(arguments), joinedIDs(list));
}

// The tool at once, outside the gate and the windows, with no time limit.
asio::awaitable<void> VelmoRunCoordinator::runNewItems(std::vector<std::string> arguments,
                                                       std::string ids) {
  if (co_await collaborators_.managedPrefs.boolValue("EnableMenuBarApp",
                                                     mdm::ManagedDomain::velmoNotifier, false)) {
    arguments.push_back("--menu-bar-notification");
  }
  const std::optional<core::TimeInterval> noLimit;
  const int result = co_await collaborators_.runner.run(std::move(arguments), noLimit);
  if (result != 0 && result != VelmoRunner::kNotStarted) {
    logger_.error("Failed to process new update items: " + ids +
                  " with exit code: " + std::to_string(result));
  }
}

}  // namespace velmo::agent::run
