#pragma once

#include <memory>

#include <asio/awaitable.hpp>

#include "agent/deferrals/ActiveIntervalManager.h"
#include "agent/deferrals/DeferralManager.h"
#include "agent/items/UIController.h"
#include "agent/items/VelmoAgentQueue.h"
#include "agent/main/AgentStatusReporter.h"
#include "agent/main/AgentStop.h"
#include "agent/main/InventoryReportWriter.h"
#include "agent/main/ServiceStatus.h"
#include "agent/maintenance/MaintenanceManager.h"
#include "agent/policy/NotificationCenterIconObserver.h"
#include "core/AgentLifecycle.h"
#include "core/Debouncer.h"
#include "core/Executors.h"
#include "core/logging/CustomLogger.h"
#include "core/logging/PostLog.h"
#include "core/logging/RecentLines.h"
#include "core/notifications/NotificationCenter.h"
#include "mdm/ManagedPrefs.h"
#include "platform/Clock.h"
#include "platform/DistributedNotificationCenter.h"
#include "platform/FileManager.h"
#include "platform/Host.h"
#include "platform/NetworkCost.h"
#include "platform/Paths.h"
#include "platform/PowerSource.h"
#include "platform/PreferenceStores.h"
#include "platform/ServiceManager.h"
#include "platform/UserDefaults.h"
#include "platform/WorkspaceEvents.h"

namespace velmo::agent {

namespace run {
class InventoryUpdater;
class VelmoRunCoordinator;
class VelmoRunner;
}  // namespace run

// The start-up sequence: builds the long-lived objects on the main executor
// in their order, tells the service manager it is ready, then waits, without
// waking, while timers, notifications and subscriptions do the work, until
// the stop is over; then it writes what waits to be saved and returns.
class StartCommand {
 public:
  struct Collaborators {
    core::Executor mainExecutor;
    platform::Clock& clock;
    const platform::Paths& paths;
    // The update state file's thread, and the deferrals file's.
    core::Executor fileExecutor;
    core::Executor deferralsFileExecutor;
    run::VelmoRunner& runner;
    platform::DistributedNotificationCenter& distributedCenter;
    core::NotificationCenter& notificationCenter;
    platform::WorkspaceEvents& workspaceEvents;
    platform::PowerSource& power;
    platform::NetworkCost& network;
    mdm::ManagedPrefs& managedPrefs;
    platform::UserDefaults& userDefaults;
    platform::FileManager& files;
    run::InventoryUpdater& inventory;
    items::VelmoAgentQueue& agentQueue;
    platform::ApplicationTerminations& terminations;
    const platform::Host& host;
    core::PostLog& postLog;
    platform::AgentStatusPublisher& statusPublisher;
    core::AgentLifecycle& lifecycle;
    AgentStop& stop;
    platform::ServiceManager& serviceManager;
    // What the inventory report reads with, on the update state file's thread.
    struct Report {
      const platform::PreferenceStores& stores;
      const platform::UserDefaults& userDefaults;
      const core::RecentLines& recentErrors;
    } report;
  };

  explicit StartCommand(Collaborators collaborators);
  ~StartCommand();

  asio::awaitable<void> run();

  // Freed memory goes back to the system once a burst of posts has been
  // quiet this long: each post of a flood is a task of its own, and the
  // resident size would otherwise stay at its peak.
  static constexpr platform::Duration kMemoryReleaseDelay = std::chrono::seconds(10);

 private:
  void build(bool activeIntervals, std::shared_ptr<run::VelmoRunCoordinator> coordinator);
  void followActivity(run::VelmoRunCoordinator& coordinator);
  void releaseMemoryAfterBursts();
  asio::awaitable<void> flushSaves();

  Collaborators collaborators_;
  core::CustomLogger logger_{"StartCommand"};
  // The long-lived objects; they live as long as the process.
  std::shared_ptr<items::UIController> uiController_;
  std::unique_ptr<deferrals::DeferralManager> deferralManager_;
  std::shared_ptr<maintenance::MaintenanceManager> maintenanceManager_;
  std::unique_ptr<deferrals::ActiveIntervalManager> activeIntervalManager_;
  std::shared_ptr<policy::NotificationCenterIconObserver> iconObserver_;
  std::unique_ptr<AgentStatusReporter> statusReporter_;
  std::unique_ptr<ServiceStatus> serviceStatus_;
  std::unique_ptr<InventoryReportWriter> report_;
  std::unique_ptr<core::Debouncer> memoryRelease_;
  std::vector<platform::ObserverToken> burstTokens_;
  core::Subscription busy_;
};

}  // namespace velmo::agent
