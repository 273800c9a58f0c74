#pragma once

#include <any>
#include <cstdint>
#include <map>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include <asio/awaitable.hpp>

#include "agent/deferrals/DeferralStorageManager.h"
#include "core/Executors.h"
#include "core/Lifetime.h"
#include "core/files/WriteRetry.h"
#include "core/logging/CustomLogger.h"
#include "core/logging/LogBudget.h"
#include "core/logging/PostLog.h"
#include "core/notifications/NotificationCenter.h"
#include "platform/Clock.h"
#include "platform/DistributedNotificationCenter.h"
#include "platform/FileManager.h"
#include "platform/Paths.h"

namespace velmo::agent::deferrals {

// Turns users' deferring answers into stored deferrals, and clears an app's
// records once its update is installed or its item is dropped. Only records:
// no decision of the agent reads a count. Lives on the main executor; the
// file is read and written on `fileExecutor`, one write at a time, and the
// changes that arrive during a write are folded into the next one. Records
// that could not be written (a full disk) stay in memory and go out with the
// next attempt: a retry with back-off, or the next change.
class DeferralManager {
 public:
  // Changes wait only while one write is in work; more than this is a flood.
  static constexpr std::size_t kMaxWaitingChanges = 10000;

  struct Collaborators {
    core::Executor mainExecutor;
    // A thread of its own in the agent, the main executor in unit tests.
    core::Executor fileExecutor;
    platform::Clock& clock;
    platform::FileManager& files;
    const platform::Paths& paths;
    platform::DistributedNotificationCenter& distributedCenter;
    core::NotificationCenter& notificationCenter;
    core::PostLog& postLog;
  };

  explicit DeferralManager(const Collaborators& collaborators);
  ~DeferralManager();
  DeferralManager(const DeferralManager&) = delete;
  DeferralManager& operator=(const DeferralManager&) = delete;

  void processUpdateDialogResponse(const platform::DistributedNotification& notification);
  void processInstallation(const platform::DistributedNotification& notification);
  // The object is an update item, posted in this process.
  void handleRemoveDeferralsForItem(const std::any& object);
  // Counts one more deferral of `appId` at `targetVersion`, now.
  void recordDeferral(const std::string& appId, const std::string& targetVersion,
                      const std::string& reason, std::uint32_t account = 0);
  // Writes now what waits, a retry's too, and completes once that write and
  // one in flight have ended: the agent's last step before it exits. Main
  // executor.
  asio::awaitable<void> flush();

 private:
  // One change of the file: a deferral to count, or an app whose records go.
  // Deferrals of one record that wait together fold into one change: its
  // newest details, and how many older ones were folded away uncounted.
  struct Change {
    bool isRemoval = false;
    std::string appId;
    std::string targetVersion;
    std::vector<core::DeferralDetail> details;
    std::int64_t foldedAway = 0;
    // The accounts whose deferrals this change counts, ascending.
    std::vector<std::uint32_t> accounts{};
  };
  // What the file thread works with; it outlives the manager while a write runs.
  struct FileWork {
    DeferralStorageManager storageManager;
    core::CustomLogger logger{"DeferralManager"};
    DeferralStorageManager::Recency recency{};
    std::uint64_t changes = 0;
    // The records as the last failed write had them; the file lags behind.
    std::optional<core::DeferralMap> unwritten{};
    // Applies `changes` (none for a retry) and writes; the error line on failure.
    std::optional<std::string> apply(const std::vector<Change>& changes);
    void count(core::DeferralMap& map, const Change& change);
  };

  void submit(Change change);
  void writeWaitingChanges();
  void finishWrite(const std::optional<std::string>& failure, bool changed);
  void postDeferralsDidChange();

  Collaborators collaborators_;
  core::CustomLogger logger_{"DeferralManager"};
  core::LogBudget drops_{logger_, collaborators_.clock, collaborators_.mainExecutor};
  std::shared_ptr<FileWork> fileWork_;
  core::SerialExecutor fileStrand_;
  std::vector<Change> waiting_;
  // The waiting change of each record key, while no removal follows it.
  std::map<std::string, std::size_t> waitingRecords_;
  bool writing_ = false;
  bool retryWanted_ = false;
  core::WriteRetry retry_;
  core::Lifetime lifetime_;
  std::vector<platform::ObserverToken> distributedObservers_;
  platform::ObserverToken localObserver_;
};

}  // namespace velmo::agent::deferrals
