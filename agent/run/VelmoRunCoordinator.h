#pragma once

#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include <asio/awaitable.hpp>

#include "agent/policy/MDMChangeObserver.h"
#include "agent/policy/VelmoRunConfig.h"
#include "agent/run/InventoryUpdater.h"
#include "agent/run/ListedItems.h"
#include "agent/run/NewItemsInstaller.h"
#include "agent/run/RunActivity.h"
#include "agent/run/RunConditionWatch.h"
#include "agent/run/RunGate.h"
#include "agent/run/RunPass.h"
#include "agent/run/RunPlanner.h"
#include "agent/run/RunPolicyDiff.h"
#include "agent/run/RunRecord.h"
#include "agent/runner/VelmoRunner.h"
#include "core/AgentLifecycle.h"
#include "core/Debouncer.h"
#include "core/Executors.h"
#include "core/Published.h"
#include "core/SubscriberOperators.h"
#include "core/logging/CustomLogger.h"
#include "core/time/TimeInterval.h"
#include "core/time/VelmoWindowPolicy.h"
#include "mdm/ManagedPrefs.h"
#include "platform/Clock.h"
#include "platform/DistributedNotificationCenter.h"
#include "platform/FileManager.h"
#include "platform/NetworkCost.h"
#include "platform/Paths.h"
#include "platform/PowerSource.h"
#include "platform/UserDefaults.h"
#include "platform/WorkspaceEvents.h"

namespace velmo::agent::run {

// What caused a rescheduling; it changes log text and nothing else.
enum class RescheduleReason { wake, mdmChange, clockChange };

// Decides when an update run happens: owns the one-shot run timer, the gate
// and the run policy in force, and follows sleep, power-off, wake and policy
// changes. Lives on the main executor; all its state is touched there.
//
// Made only through make(), since the tasks it starts hold it weakly and the
// first run is attempted one second after it stands.
class VelmoRunCoordinator : public std::enable_shared_from_this<VelmoRunCoordinator> {
 public:
  static constexpr core::TimeInterval defaultTimerInterval = RunPlanner::kDefaultInterval;
  static constexpr core::TimeInterval kFirstRunDelay{1.0};
  static constexpr core::TimeInterval kGateLimit{3600.0};
  static constexpr platform::Duration kDebounce = std::chrono::seconds(5);
  // A time service slews small errors away and steps only large ones; a step
  // beyond this moves the planned run as a wake does.
  static constexpr platform::Duration kClockStepTolerance = std::chrono::minutes(1);

  struct Collaborators {
    core::Executor mainExecutor;
    platform::Clock& clock;
    platform::FileManager& files;
    const platform::Paths& paths;
    platform::UserDefaults& userDefaults;
    mdm::ManagedPrefs& managedPrefs;
    platform::DistributedNotificationCenter& distributedCenter;
    platform::WorkspaceEvents& workspaceEvents;
    VelmoRunner& runner;
    InventoryUpdater& inventory;
    // Once the agent stops, the run timer is cleared and no run starts; none
    // means the agent never stops (unit tests that don't need it).
    core::AgentLifecycle* lifecycle = nullptr;
    // The system's time zone at the moment of asking; windows are judged in it.
    std::function<std::string()> currentTimeZone = core::VelmoWindowPolicy::currentTimeZoneId;
    // What the run policy's conditions look at; none: no such service.
    platform::PowerSource* power = nullptr;
    platform::NetworkCost* network = nullptr;
  };

  // Builds the coordinator and starts the first run attempt one second later.
  // Call on the main executor.
  static std::shared_ptr<VelmoRunCoordinator> make(Collaborators collaborators);
  ~VelmoRunCoordinator();
  VelmoRunCoordinator(const VelmoRunCoordinator&) = delete;
  VelmoRunCoordinator& operator=(const VelmoRunCoordinator&) = delete;

  // A user's request: one pass of the gate. Returns when the gate has served it.
  asio::awaitable<void> requestRun(bool userInitiated);
  // Plans from the last finished run.
  void rescheduleFromLastRun(std::optional<RescheduleReason> reason);
  // A new policy, 5 quiet seconds after it was published.
  void handlePolicyChange(const policy::VelmoRunConfig& fresh);

  // Set by the start-up once the UI controller stands; held weakly, as the
  // controller holds the coordinator.
  void setUIController(std::weak_ptr<ListedItems> controller) {
    uiController_ = std::move(controller);
  }

  core::TimeInterval timerInterval() const { return timerInterval_; }
  const policy::VelmoRunConfig& config() const { return config_; }
  // When the armed run timer fires; none when it is clear.
  std::optional<platform::TimePoint> nextRunDate() const;
  core::Published<RunActivity>& activity() { return record_.activity(); }
  const std::optional<LastRun>& lastRunSummary() const { return record_.lastRunSummary(); }

 private:
  explicit VelmoRunCoordinator(Collaborators collaborators);
  void start();

  // Submits a scheduled run to the gate, `delay` from now.
  void startTriggerRun(core::TimeInterval delay);
  asio::awaitable<void> triggerRun();
  // What the gate runs: the run, then the plan of the next one.
  RunGate::Operation gateOperation(bool userInitiated);
  asio::awaitable<void> runAndPlanNext(bool userInitiated);
  asio::awaitable<void> performRun(bool userInitiated);
  asio::awaitable<void> planNextRun();

  // Plans from the present moment.
  void scheduleNextRun();
  // The windows in force now and the current interval.
  RunPlanner planner() const;
  // Arms the one run timer for `delta` from now, replacing any armed one.
  void scheduleTimer(platform::TimePoint fireDate, core::TimeInterval delta,
                     std::optional<RescheduleReason> reason);
  void invalidateTimer();
  // Built afresh at each call, in the zone the system has now; none means
  // every moment is allowed.
  std::optional<core::VelmoWindowPolicy> effectivePolicy() const;
  // This machine's RunSplay offset under the policy in force.
  core::TimeInterval splayOffset() const;
  // Says that a configured interval is unusable: a non-positive or non-finite
  // one would run back to back, so the default stands in.
  void warnUnusableInterval(double seconds) const;
  // Says when the windows moved a run from when it was due.
  void logDeferral(const RunPlanner::Plan& plan, std::optional<RescheduleReason> reason) const;

  void applyInterval(core::TimeInterval interval);
  // Starts the tool at once for IDs the new policy added.
  void startAddedItems(const RunPolicyDiff& diff, const policy::VelmoRunConfig& fresh);

  void handleWorkspaceEvent(platform::WorkspaceEvent event);
  // The wall clock was set by `step`; the armed timer counts elapsed time.
  void handleClockStep(platform::Duration step);
  bool stopping() const { return collaborators_.lifecycle && collaborators_.lifecycle->stopping(); }
  void handleStop();
  // The conditions cleared while a run was overdue.
  void releaseOverdueRun();

  Collaborators collaborators_;
  core::CustomLogger logger_{"VelmoRunCoordinator"};
  std::unique_ptr<platform::Timer> timer_;
  core::TimeInterval timerInterval_{defaultTimerInterval};
  core::Debouncer wakeSubject_;
  std::weak_ptr<ListedItems> uiController_;
  std::vector<core::Subscription> cancellables_;
  std::optional<platform::ObserverToken> workspaceToken_;
  policy::MDMChangeObserver mdmChangeObserver_;
  policy::VelmoRunConfig config_;
  // Read once: it names the machine for as long as the agent runs.
  std::optional<std::string> machineId_;
  RunRecord record_;
  RunGate gate_;
  RunConditionWatch conditions_;
  RunPass pass_;
  NewItemsInstaller newItems_;
  std::unique_ptr<platform::Timer> clockSteps_;
  bool refusalSaid_ = false;
};

}  // namespace velmo::agent::run
