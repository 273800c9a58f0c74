#pragma once

#include <functional>
#include <memory>

#include <asio/awaitable.hpp>

#include "agent/maintenance/CachePruner.h"
#include "agent/maintenance/LogTruncator.h"
#include "agent/maintenance/MaintenanceActivity.h"
#include "agent/maintenance/TempArtifactCleaner.h"
#include "agent/maintenance/ToolLinkMaintainer.h"
#include "agent/run/PlistManager.h"
#include "agent/runner/VelmoRunner.h"
#include "core/AgentLifecycle.h"
#include "core/Executors.h"
#include "core/Published.h"
#include "core/logging/CustomLogger.h"
#include "core/time/TimeInterval.h"
#include "mdm/ManagedPrefs.h"
#include "platform/Clock.h"
#include "platform/FileManager.h"
#include "platform/Paths.h"
#include "platform/UserDefaults.h"
#include "platform/WorkspaceEvents.h"

namespace velmo::agent::maintenance {

// The agent's housekeeping, on a timer of its own: a cycle at every start
// and 8 hours after the end of each cycle. A cycle runs its jobs side by
// side, waits for all of them, and records its number and end in the agent
// state file. Sleep drops the timer; wake plans from the recorded end.
// Lives on the main executor; timers and events hold it weakly.
class MaintenanceManager : public std::enable_shared_from_this<MaintenanceManager> {
 public:
  static constexpr core::TimeInterval kTimerInterval{28'800.0};
  static constexpr int kCacheAgeLimitDays = 7;
  static constexpr std::uint64_t kLogLimitMegabytes = 5;
  static constexpr int kTempArtifactAgeLimitDays = 1;
  // A report takes minutes; one that hangs must not hold the cycle, and with
  // it log and cache housekeeping, for ever.
  static constexpr core::TimeInterval kReportTimeLimit{3600.0};

  struct Collaborators {
    core::Executor mainExecutor;
    platform::Clock& clock;
    platform::FileManager& files;
    const platform::Paths& paths;
    const platform::UserDefaults& userDefaults;
    mdm::ManagedPrefs& managedPrefs;
    platform::WorkspaceEvents& workspaceEvents;
    run::VelmoRunner& runner;
    // Once the agent stops, no cycle starts and the timer goes; none means
    // the agent never stops (unit tests that don't need it).
    core::AgentLifecycle* lifecycle = nullptr;
  };

  // Subscribes to sleep and wake, then starts the first cycle.
  static std::shared_ptr<MaintenanceManager> make(const Collaborators& collaborators);
  ~MaintenanceManager();
  MaintenanceManager(const MaintenanceManager&) = delete;
  MaintenanceManager& operator=(const MaintenanceManager&) = delete;

  // A cycle, then the timer armed for the next one. Every start of a cycle
  // comes through here; one that finds a cycle running leaves it to that one.
  asio::awaitable<void> runMaintenanceAndReschedule();
  // Has the tool collect and submit its report; the exit code goes to the log.
  asio::awaitable<void> submitReport();

  core::Published<MaintenanceActivity>& activity() { return activity_; }

 private:
  explicit MaintenanceManager(const Collaborators& collaborators);

  asio::awaitable<void> runMaintenance();
  // `job` as a task of its own on the main executor, awaited.
  asio::awaitable<void> onMain(std::function<void()> job);
  void startCycle();
  void armTimer(platform::Duration delay);
  void scheduleTimer();
  void willSleep();
  void didWake();
  void clearTimer();
  void publishActivity();

  Collaborators collaborators_;
  core::CustomLogger logger_{"MaintenanceManager"};
  run::PlistManager plistManager_;
  CachePruner cachePruner_;
  LogTruncator logTruncator_;
  TempArtifactCleaner tempArtifactCleaner_;
  ToolLinkMaintainer toolLinkMaintainer_;
  std::unique_ptr<platform::Timer> timer_;
  platform::ObserverToken workspaceToken_;
  std::optional<platform::TimePoint> timerFireDate_;
  bool cycleRunning_ = false;
  core::Published<MaintenanceActivity> activity_{MaintenanceActivity{}};
  core::Subscription stop_;
};

}  // namespace velmo::agent::maintenance
