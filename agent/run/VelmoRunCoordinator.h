#pragma once

#include <deque>
#include <functional>
#include <memory>
#include <optional>
#include <set>
#include <string>
#include <vector>

#include <asio/awaitable.hpp>

#include "agent/policy/MDMChangeObserver.h"
#include "agent/policy/VelmoRunConfig.h"
#include "agent/run/InventoryUpdater.h"
#include "agent/run/ListedItems.h"
#include "agent/run/PlistManager.h"
#include "agent/run/RunActivity.h"
#include "agent/run/RunGate.h"
#include "agent/run/RunPlanner.h"
#include "agent/run/VelmoRunJob.h"
#include "agent/run/VelmoRunner.h"
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
#include "platform/Paths.h"
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
  static constexpr int kRefusedRunSearchDays = 14;
  static constexpr core::TimeInterval kCompareTimeout{60.0};
  // A time service slews small errors away and steps only large ones; a step
  // beyond this moves the planned run as a wake does.
  static constexpr platform::Duration kClockStepTolerance = std::chrono::minutes(1);
  // Exit statuses of `compare <id> --fail`.
  static constexpr int kCompareNothingDue = 0;
  static constexpr int kCompareUpdateAvailable = 57;

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
  };

  // Builds the coordinator and starts the first run attempt one second later.
  // Call on the main executor.
  static std::shared_ptr<VelmoRunCoordinator> make(Collaborators collaborators);
  ~VelmoRunCoordinator();
  VelmoRunCoordinator(const VelmoRunCoordinator&) = delete;
  VelmoRunCoordinator& operator=(const VelmoRunCoordinator&) = delete;

  // A user's request: one pass of the gate. Returns when the gate has served it.
  asio::awaitable<void> requestRun(bool userInitiated);
  // Waits `delay`, then submits a scheduled run to the gate.
  asio::awaitable<void> triggerRun(core::TimeInterval delay);

  // Plans from the present moment.
  void scheduleNextRun();
  // Plans from the last finished run.
  void rescheduleFromLastRun(std::optional<RescheduleReason> reason);
  // The windows in force now and the current interval.
  RunPlanner planner() const;
  // Arms the one run timer for `delta` from now, replacing any armed one.
  void scheduleTimer(platform::TimePoint fireDate, core::TimeInterval delta,
                     std::optional<RescheduleReason> reason);
  // Built afresh at each call, in the zone the system has now; none means
  // every moment is allowed.
  std::optional<core::VelmoWindowPolicy> effectivePolicy() const;

  asio::awaitable<void> performRun(bool userInitiated);
  asio::awaitable<bool> shouldSkipRun();

  // A new policy, 5 quiet seconds after it was published.
  void handlePolicyChange(const policy::VelmoRunConfig& fresh);
  asio::awaitable<void> processInstallOrUpdateItems(std::set<std::string> ids);
  asio::awaitable<void> processUpdateOnlyItems(std::set<std::string> ids);
  // Reconciles the listed items with the tool before a run's job: an item
  // with nothing due leaves the list, and its deferrals go.
  asio::awaitable<void> compareListedItems();
  asio::awaitable<int> compareItem(std::string id, core::TimeInterval timeout);
  void handleCompareResult(const std::string& id, int exitCode);

  void handleWorkspaceEvent(platform::WorkspaceEvent event);
  // The wall clock was set by `step`; the armed timer counts elapsed time.
  void handleClockStep(platform::Duration step);

  // Set by the start-up once the UI controller stands; held weakly, as the
  // controller holds the coordinator.
  void setUIController(std::weak_ptr<ListedItems> controller) {
    uiController_ = std::move(controller);
  }

  core::TimeInterval timerInterval() const { return timerInterval_; }
  // This machine's RunSplay offset under the policy in force.
  core::TimeInterval splayOffset() const;
  const policy::VelmoRunConfig& config() const { return config_; }
  // When the armed run timer fires; none when it is clear.
  std::optional<platform::TimePoint> nextRunDate() const;
  core::Published<RunActivity>& activity() { return activity_; }

 private:
  explicit VelmoRunCoordinator(Collaborators collaborators);
  void start();

  RunGate::Operation gateOperation(bool userInitiated);
  void startTriggerRun(core::TimeInterval delay);
  void invalidateTimer();
  // A usable interval from a configured one; a non-positive or non-finite one
  // would run back to back, so it falls back to the default, with a warning.
  core::TimeInterval sanitizedInterval(double seconds) const;
  // Says when the windows moved a run from when it was due.
  void logDeferral(const RunPlanner::Plan& plan, std::optional<RescheduleReason> reason) const;
  asio::awaitable<void> compareWorker(std::shared_ptr<std::deque<std::string>> pending);
  asio::awaitable<void> runNewItems(std::vector<std::string> arguments, std::string ids);
  // The window check of a run, with its log lines; nothing is recorded for a refused run.
  bool windowsAllow(bool userInitiated, platform::TimePoint now) const;
  // One job, built for this run and dropped after it; the job can't fail as a whole.
  asio::awaitable<void> runJob(bool userInitiated);
  void recordRun(std::int64_t runNumber, platform::TimePoint date);
  // `change` applied to the activity, published when it differs.
  void updateActivity(const std::function<void(RunActivity&)>& change);
  bool stopping() const { return collaborators_.lifecycle && collaborators_.lifecycle->stopping(); }
  void handleStop();

  Collaborators collaborators_;
  core::CustomLogger logger_{"VelmoRunCoordinator"};
  std::unique_ptr<platform::Timer> timer_;
  core::TimeInterval timerInterval_{defaultTimerInterval};
  PlistManager plistManager_;
  core::Debouncer wakeSubject_;
  std::weak_ptr<ListedItems> uiController_;
  std::vector<core::Subscription> cancellables_;
  std::optional<platform::ObserverToken> workspaceToken_;
  policy::MDMChangeObserver mdmChangeObserver_;
  policy::VelmoRunConfig config_;
  // Read once: it names the machine for as long as the agent runs.
  std::optional<std::string> machineId_;
  RunGate gate_;
  core::Published<RunActivity> activity_{RunActivity{}};
  std::unique_ptr<platform::Timer> clockSteps_;
  bool refusalSaid_ = false;
};

}  // namespace velmo::agent::run
