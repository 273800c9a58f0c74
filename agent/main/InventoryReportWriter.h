#pragma once

#include <functional>
#include <memory>
#include <optional>
#include <vector>

#include "agent/main/AgentStatusReporter.h"
#include "agent/maintenance/MaintenanceActivity.h"
#include "agent/run/RunActivity.h"
#include "agent/run/VelmoRunCoordinator.h"
#include "core/Executors.h"
#include "core/Lifetime.h"
#include "core/Published.h"
#include "core/files/WriteRetry.h"
#include "core/logging/RecentLines.h"
#include "core/notifications/NotificationCenter.h"
#include "platform/Clock.h"
#include "platform/DistributedNotificationCenter.h"
#include "platform/FileManager.h"
#include "platform/Paths.h"
#include "platform/PreferenceStores.h"
#include "platform/UserDefaults.h"

namespace velmo::agent {

// Keeps the inventory report beside the update state file: written whenever a
// run starts or ends, the item list, the deferrals or the policy change, or
// housekeeping runs. A burst of changes is folded into one write at most every
// two seconds. The report is read from the files as `status` reads them, on
// the file thread, and written with the durable write of the state files.
// Lives on the main executor.
class InventoryReportWriter {
 public:
  struct Collaborators {
    core::Executor mainExecutor;
    // The update state file's thread: the report reads what it wrote.
    core::Executor fileExecutor;
    platform::Clock& clock;
    platform::FileManager& files;
    const platform::Paths& paths;
    // Read on the file thread only: instances of their own.
    const platform::PreferenceStores& stores;
    const platform::UserDefaults& userDefaults;
    platform::DistributedNotificationCenter& distributedCenter;
    core::NotificationCenter& notificationCenter;
    const core::RecentLines& recentErrors;
    // Called after each write on the main executor: building the report
    // takes memory on the file thread, which should go back to the system.
    std::function<void()> written = [] {};
  };

  static constexpr platform::Duration kFold = std::chrono::seconds(2);

  explicit InventoryReportWriter(Collaborators collaborators);
  ~InventoryReportWriter();
  InventoryReportWriter(const InventoryReportWriter&) = delete;
  InventoryReportWriter& operator=(const InventoryReportWriter&) = delete;

  // Writes as the runs and housekeeping move on; the last run's summary is
  // the coordinator's.
  void follow(const AgentStatusReporter& reporter, const run::VelmoRunCoordinator& coordinator,
              core::Published<run::RunActivity>& runs,
              core::Published<maintenance::MaintenanceActivity>& maintenance);
  // Something the report shows changed: a write within kFold.
  void changed();
  // Writes what is pending now; returns once it is on disk or failed.
  asio::awaitable<void> flush();

 private:
  struct Job;
  void write();
  std::shared_ptr<Job> job() const;
  void finished(bool written, const std::string& failure);

  Collaborators collaborators_;
  core::CustomLogger logger_{"InventoryReport"};
  const AgentStatusReporter* reporter_ = nullptr;
  const run::VelmoRunCoordinator* coordinator_ = nullptr;
  std::unique_ptr<platform::Timer> timer_;
  core::WriteRetry retry_;
  std::vector<core::Subscription> cancellables_;
  std::vector<platform::ObserverToken> tokens_;
  std::optional<platform::ObserverToken> localToken_;
  core::Lifetime lifetime_;
};

}  // namespace velmo::agent
