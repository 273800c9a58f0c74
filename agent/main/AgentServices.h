#pragma once

#include <memory>

#include <asio/io_context.hpp>
#include <asio/signal_set.hpp>
#include <asio/thread_pool.hpp>

#include "agent/items/VelmoAgentQueue.h"
#include "agent/main/AgentStop.h"
#include "agent/main/StartCommand.h"
#include "agent/run/InventoryUpdater.h"
#include "agent/runner/VelmoRunner.h"
#include "backends/linux/LogindWorkspaceEvents.h"
#include "backends/linux/ManagedPreferencesWatcher.h"
#include "backends/linux/NetworkManagerCost.h"
#include "backends/linux/PlistPreferenceStores.h"
#include "backends/linux/PlistUserDefaults.h"
#include "backends/linux/PosixFileManager.h"
#include "backends/linux/PosixHost.h"
#include "backends/linux/PosixProcessLauncher.h"
#include "backends/linux/ProcessConnectorTerminations.h"
#include "backends/linux/SdBusAgentObject.h"
#include "backends/linux/SdBusConnection.h"
#include "backends/linux/SdBusNotificationCenter.h"
#include "backends/linux/SdBusThread.h"
#include "backends/linux/SdNotifyServiceManager.h"
#include "backends/linux/SystemClock.h"
#include "backends/linux/UPowerPowerSource.h"
#include "core/AgentLifecycle.h"
#include "core/logging/PostLog.h"
#include "core/logging/RecentLines.h"
#include "core/notifications/NotificationCenter.h"
#include "mdm/ManagedPrefs.h"
#include "platform/Paths.h"
#include "platform/UnifiedLog.h"

namespace velmo::agent {

// The running agent's long-lived objects on Linux, each a named member,
// built in the order they depend on one another; run() starts the agent and
// returns when its stop is over.
class AgentServices {
 public:
  AgentServices(const platform::Paths& paths, platform::linux::PosixFileManager& files,
                const platform::linux::PosixHost& host);
  AgentServices(const AgentServices&) = delete;
  AgentServices& operator=(const AgentServices&) = delete;

  void run();

 private:
  // Every line from here on goes to standard output and the unified log.
  struct Logging {
    explicit Logging(const platform::Clock& clock);
    std::unique_ptr<platform::UnifiedLog> unified;
    // The last error lines, for the inventory report.
    core::RecentLines recentErrors;
  };
  // Opened at once; what can't be opened is retried while everything else goes on.
  struct MainBus {
    MainBus(asio::any_io_executor executor, platform::Clock& clock);
    platform::linux::SdBusConnection connection;
  };
  // Posts, the Post method and the agent's status: a connection and a thread
  // of their own, running before anything observes a post.
  struct AgentBus {
    AgentBus(platform::Clock& clock, asio::any_io_executor observers);
    platform::linux::SdBusThread thread;
    platform::linux::SdBusNotificationCenter center;
    // Every local user may read what the agent is doing; nobody can change it this way.
    platform::linux::SdBusAgentObject status;
  };

  StartCommand::Collaborators collaborators();
  void awaitStopSignals();

  const platform::Paths& paths_;
  platform::linux::PosixFileManager& files_;
  const platform::linux::PosixHost& host_;
  platform::linux::SystemClock clock_;
  Logging logging_{clock_};
  asio::io_context context_{1};
  asio::any_io_executor executor_ = context_.get_executor();
  // Before any thread starts: the signals are taken on the main executor.
  core::AgentLifecycle lifecycle_;
  platform::linux::SdNotifyServiceManager serviceManager_;
  AgentStop stop_{{executor_, clock_, lifecycle_, serviceManager_}};
  asio::signal_set stopSignals_{context_, SIGTERM, SIGINT};
  MainBus bus_{executor_, clock_};
  AgentBus agentBus_{clock_, executor_};
  platform::linux::LogindWorkspaceEvents workspaceEvents_{bus_.connection};
  // What the run policy's conditions look at.
  platform::linux::UPowerPowerSource power_{bus_.connection};
  platform::linux::NetworkManagerCost network_{bus_.connection};
  core::NotificationCenter notificationCenter_;
  platform::linux::ManagedPreferencesWatcher preferencesWatcher_{
      {executor_, clock_, paths_, agentBus_.center, notificationCenter_}};
  // The agent's standard user defaults, and the managed-preferences snapshot.
  platform::linux::PlistPreferenceStores preferenceStores_{files_, paths_};
  platform::linux::PlistUserDefaults userDefaults_;
  // The inventory report's own readers: it reads on the update state file's thread.
  platform::linux::PlistPreferenceStores reportStores_{files_, paths_};
  platform::linux::PlistUserDefaults reportDefaults_;
  mdm::ManagedPrefs managedPrefs_{{executor_, clock_, preferenceStores_, agentBus_.center,
                                   notificationCenter_, workspaceEvents_}};
  // Root starts only programs that no other account can change, checked
  // from the root prefix down.
  platform::linux::PosixProcessLauncher launcher_{paths_.root()};
  run::VelmoRunner runner_{launcher_, clock_, paths_.toolExecutable(), &lifecycle_};
  run::InventoryUpdater inventory_{launcher_, clock_, paths_.inventoryTool(), &lifecycle_};
  // The update state file's work runs on a thread of its own, so a slow disk
  // never holds up the event loop; the deferrals file has another, so that a
  // flood of deferrals can't hold up the update state file either.
  asio::thread_pool fileThread_{1};
  asio::thread_pool deferralsFileThread_{1};
  core::PostLog postLog_{clock_, executor_};
  items::VelmoAgentQueue agentQueue_{{executor_, clock_, userDefaults_, runner_}};
  platform::linux::ProcessConnectorTerminations terminations_{executor_, clock_};
  StartCommand start_{collaborators()};
};

}  // namespace velmo::agent
