#pragma once

#include <filesystem>
#include <memory>
#include <optional>
#include <set>
#include <string>
#include <unordered_map>
#include <vector>

#include <asio/awaitable.hpp>

#include "agent/items/UpdateStateFile.h"
#include "agent/items/VelmoAgentQueue.h"
#include "agent/run/ListedItems.h"
#include "agent/run/VelmoRunCoordinator.h"
#include "core/Executors.h"
#include "core/Lifetime.h"
#include "core/Published.h"
#include "core/files/DamagedFileKeeper.h"
#include "core/files/WriteRetry.h"
#include "core/items/UpdateItem.h"
#include "core/logging/CustomLogger.h"
#include "core/logging/LogBudget.h"
#include "core/logging/PostLog.h"
#include "core/notifications/NotificationCenter.h"
#include "core/time/TimeInterval.h"
#include "platform/Clock.h"
#include "platform/DistributedNotificationCenter.h"
#include "platform/FileManager.h"
#include "platform/Paths.h"

namespace velmo::agent::items {

// Keeps the list of pending update items that the per-user notifier shows:
// takes in what the sibling programs announce, keeps the list saved in the
// update state file, tells the siblings when that file changed, hands single
// items to the agent queue and starts user-initiated checks.
//
// The list lives on the main executor. File work runs in order on a strand of
// its own, over `fileExecutor`, and never blocks the main executor.
class UIController final : public run::ListedItems,
                           public std::enable_shared_from_this<UIController> {
 public:
  static constexpr core::TimeInterval notificationDebounceInterval{2.0};
  static constexpr core::TimeInterval minSaveInterval{0.3};
  static constexpr core::TimeInterval kInstalledRemovalDelay{3.0};
  static constexpr platform::Duration kProgressPeriod = std::chrono::seconds(2);
  // The tool lists what is installed and outdated on one Mac: a few dozen
  // items. The notifier shows the list and every user check compares each
  // item, so a list beyond this is no machine's and would hold the run gate
  // for hours.
  static constexpr std::size_t kMaxItems = 1000;
  // User checks that wait for the gate, each a task; more join the newest.
  // A user asks once, a companion per session; this is any account's flood.
  static constexpr std::size_t kMaxCheckTasks = 256;

  struct Collaborators {
    core::Executor mainExecutor;
    // Where file work runs; a thread of its own in the agent, the main
    // executor in unit tests.
    core::Executor fileExecutor;
    platform::Clock& clock;
    platform::FileManager& files;
    const platform::Paths& paths;
    platform::DistributedNotificationCenter& distributedCenter;
    core::NotificationCenter& notificationCenter;
    VelmoAgentQueue& agentQueue;
    core::PostLog& postLog;
  };

  // Starts the load of the state file and registers the observers; does not
  // wait for the load. `coordinator` may be null where no run can be asked for.
  static std::shared_ptr<UIController> make(Collaborators collaborators,
                                            std::shared_ptr<run::VelmoRunCoordinator> coordinator);
  ~UIController() override;
  UIController(const UIController&) = delete;
  UIController& operator=(const UIController&) = delete;

  const std::vector<core::UpdateItem>& updateItems() const override { return updateItems_; }
  void scheduleRemoval(const core::UpdateItem& item, core::TimeInterval delay) override;
  void postRemoveDeferrals(const core::UpdateItem& item) override;

  // Waits `delay`, then takes the first item with that id from the list and saves.
  asio::awaitable<void> removeItem(core::UpdateItem item, core::TimeInterval delay);
  // At most one write per 0.3 s unless forced; requests in between fold into
  // one delayed save of the list as it then stands.
  void saveState(bool force);
  bool isLoaded() const { return loaded_; }
  // Saves now what waits for a delayed save or a retry, and completes once
  // every save asked for so far has been tried: the agent's last step before
  // it exits. Main executor.
  asio::awaitable<void> flush();
  // Items in the list, as of the last save's notice (a burst gives one).
  core::Published<std::size_t>& itemCount() { return itemCount_; }

  void handleAddItems(const platform::DistributedNotification& notification);
  void handleUserInitiatedCheck(const platform::DistributedNotification& notification);
  void handleEnqueue(const platform::DistributedNotification& notification);
  void handleStateChange(const platform::DistributedNotification& notification);

 private:
  UIController(Collaborators collaborators, std::shared_ptr<run::VelmoRunCoordinator> coordinator);
  void start();
  void loadState();
  void finishLoad(std::optional<std::vector<core::UpdateItem>> loaded);
  void finishSave(const std::optional<std::string>& failure);
  void scheduleQueueChangedNotification();
  // `joined` counts the checks that joined this one and complete with it.
  asio::awaitable<void> userInitiatedCheck(std::shared_ptr<std::size_t> joined);
  void armProgress();
  // Positions in `updateItems_`, so that lookups by id don't walk the list.
  std::optional<std::size_t> indexOf(const std::string& id) const;
  void append(core::UpdateItem item);
  void eraseAt(std::size_t index);
  void reindex();
  void observe(std::string_view name,
               void (UIController::*handler)(const platform::DistributedNotification&));

  Collaborators collaborators_;
  core::CustomLogger logger_{"UIController"};
  core::CustomLogger fileLogger_{"UIController+Load+Save"};
  // Other accounts can ask for installs as often as they like.
  core::LogBudget refusals_{logger_, collaborators_.clock, collaborators_.mainExecutor};
  std::vector<core::UpdateItem> updateItems_;
  std::unordered_map<std::string, std::size_t> positions_;
  // One progress ticker serves every user check that waits for the gate.
  std::size_t waitingChecks_ = 0;
  std::shared_ptr<std::size_t> newestCheck_;
  std::unique_ptr<platform::Timer> progress_;
  std::filesystem::path updateStateFile_;
  core::SerialExecutor itemUpdateQueue_;
  std::unique_ptr<platform::Timer> notificationWorkItem_;
  std::unique_ptr<platform::Timer> delayedSaveWorkItem_;
  std::optional<platform::ElapsedPoint> lastSaveTime_;  // None: the distant past.
  core::WriteRetry retry_;
  // The file strand's part: it holds no owner of the controller, so the
  // controller is never locked, or destroyed, off the main executor.
  std::shared_ptr<UpdateStateFile> fileWork_ =
      std::make_shared<UpdateStateFile>(collaborators_.files);
  std::shared_ptr<run::VelmoRunCoordinator> velmoRunCoordinator_;
  std::vector<platform::ObserverToken> observers_;
  core::Lifetime lifetime_;

  // Until the state file is read, changes are kept apart so that the load
  // can't drop them: items added or overwritten, and ids removed.
  bool loaded_ = false;
  bool saveAfterLoad_ = false;
  core::Published<std::size_t> itemCount_{0};
  std::set<std::string> removedBeforeLoad_;
};

}  // namespace velmo::agent::items
