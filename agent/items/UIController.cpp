#include "agent/items/UIController.h"

#include <algorithm>
#include <cmath>
#include <cstdio>

#include <asio/post.hpp>
#include <asio/use_awaitable.hpp>

#include "agent/run/AgentNotificationNames.h"
#include "core/items/InstallState.h"
#include "core/notifications/NotificationNames.h"

namespace velmo::agent::items {
namespace {

namespace Name = core::NotificationName;

// Seconds as the platform prints a float: "3.0", "0.0", "0.25".
std::string secondsText(core::TimeInterval delay) {
  char buffer[40];
  const double value = delay.count();
  if (value == std::trunc(value) && std::abs(value) < 1e15) {
    std::snprintf(buffer, sizeof buffer, "%.1f", value);
  } else {
    std::snprintf(buffer, sizeof buffer, "%.15g", value);
  }
  return buffer;
}

const std::string* objectString(const platform::DistributedNotification& notification) {
  return notification.object ? &*notification.object : nullptr;
}

}  // namespace

std::shared_ptr<UIController> UIController::make(
    Collaborators collaborators, std::shared_ptr<run::VelmoRunCoordinator> coordinator) {
  std::shared_ptr<UIController> controller(
      new UIController(std::move(collaborators), std::move(coordinator)));
  controller->start();
  return controller;
}

UIController::UIController(Collaborators collaborators,
                           std::shared_ptr<run::VelmoRunCoordinator> coordinator)
    : collaborators_(std::move(collaborators)),
      updateStateFile_(collaborators_.paths.updateStateFile()),
      itemUpdateQueue_(core::makeSerialExecutor(collaborators_.fileExecutor)),
      retry_(fileLogger_, collaborators_.clock, collaborators_.mainExecutor,
             "the update state file " + updateStateFile_.string(), [this] { saveState(true); }),
      velmoRunCoordinator_(std::move(coordinator)) {}

void UIController::start() {
  logger_.debug("Initializing UIController.");
  loadState();
  observe(Name::addItemsToUIControllerQueue, &UIController::handleAddItems);
  observe(Name::userInitiatedUpdateCheck, &UIController::handleUserInitiatedCheck);
  observe(Name::enqueueUpdateItem, &UIController::handleEnqueue);
  observe(Name::updateItemStateChange, &UIController::handleStateChange);
}

UIController::~UIController() {
  logger_.debug("Deinitializing UIController.");
  for (const auto& token : observers_) collaborators_.distributedCenter.removeObserver(token);
}

// List work always runs as a task of its own on the main executor, never
// inside the centre's delivery.
void UIController::observe(std::string_view name, void (UIController::*handler)(
                                                      const platform::DistributedNotification&)) {
  observers_.push_back(collaborators_.distributedCenter.addObserver(
      name,
      lifetime_.deferring<platform::DistributedNotification>(
          collaborators_.mainExecutor,
          [this, handler](const platform::DistributedNotification& n) { (this->*handler)(n); })));
  logger_.debug("Listening for distributed notifications named " + std::string(name) + ".");
}

void UIController::handleAddItems(const platform::DistributedNotification& notification) {
  const std::string* object = objectString(notification);
  const auto items = object ? core::UpdateItem::arrayFromJSONText(*object) : std::nullopt;
  if (!items) {
    collaborators_.postLog.malformed(logger_, notification,
                                     "Failed to decode items from notification.");
    return;
  }
  std::set<std::string> added;
  for (const auto& item : *items) {
    if (!indexOf(item.id)) added.insert(item.id);
  }
  if (updateItems_.size() + added.size() > kMaxItems) {
    refusals_.error("full", "additions to the full update items list", [&] {
      return "Refused " + std::to_string(items->size()) + " update items: the list holds " +
             std::to_string(updateItems_.size()) + " and takes at most " +
             std::to_string(kMaxItems) + ".";
    });
    return;
  }
  for (const auto& item : *items) {
    if (const auto found = indexOf(item.id)) {
      updateItems_[*found] = item;
      saveState(false);
      logger_.debug("Updated existing update item: " + item.id);
    } else {
      append(item);
      saveState(false);
      logger_.debug("Added update item: " + item.id);
    }
  }
}

std::optional<std::size_t> UIController::indexOf(const std::string& id) const {
  const auto found = positions_.find(id);
  if (found == positions_.end()) return std::nullopt;
  return found->second;
}

void UIController::append(core::UpdateItem item) {
  positions_.emplace(item.id, updateItems_.size());
  updateItems_.push_back(std::move(item));
}

void UIController::eraseAt(std::size_t index) {
  positions_.erase(updateItems_[index].id);
  updateItems_.erase(updateItems_.begin() + static_cast<std::ptrdiff_t>(index));
  for (std::size_t later = index; later < updateItems_.size(); ++later) {
    positions_[updateItems_[later].id] = later;
  }
}

void UIController::reindex() {
  positions_.clear();
  for (std::size_t index = 0; index < updateItems_.size(); ++index) {
    positions_.emplace(updateItems_[index].id, index);
  }
}

void UIController::handleUserInitiatedCheck(const platform::DistributedNotification&) {
  // Beyond the bound a check joins the newest one: it waits for the same
  // pass of the gate and is completed with it, without a task of its own.
  if (waitingChecks_ >= kMaxCheckTasks && newestCheck_) {
    ++*newestCheck_;
    return;
  }
  auto joined = std::make_shared<std::size_t>(0);
  newestCheck_ = joined;
  // A progress post every two seconds while the gate serves the request; the
  // first comes two seconds after the start, none after the completion. Checks
  // that overlap share one ticker, so a flood of them can't multiply the posts.
  if (++waitingChecks_ == 1) armProgress();
  core::startTask(
      collaborators_.mainExecutor,
      [](std::shared_ptr<UIController> self,
         std::shared_ptr<std::size_t> joined) -> asio::awaitable<void> {
        co_await self->userInitiatedCheck(std::move(joined));
      }(shared_from_this(), std::move(joined)),
      logger_);
}

asio::awaitable<void> UIController::userInitiatedCheck(std::shared_ptr<std::size_t> joined) {
  if (velmoRunCoordinator_) co_await velmoRunCoordinator_->requestRun(true);
  if (newestCheck_ == joined) newestCheck_.reset();
  for (std::size_t check = 0; check <= *joined; ++check) {
    collaborators_.distributedCenter.post(Name::userInitiatedUpdateCheckCompleted);
    logger_.debug("Distributed notification sent for user-initiated update check completion.");
  }
  if (--waitingChecks_ == 0) progress_.reset();
}

// Owned by this object, so the action may hold it by `this`.
void UIController::armProgress() {
  progress_ =
      collaborators_.clock.scheduleAfter(kProgressPeriod, collaborators_.mainExecutor, [this] {
        collaborators_.distributedCenter.post(Name::userInitiatedUpdateCheckInProgress);
        armProgress();
      });
}

void UIController::handleEnqueue(const platform::DistributedNotification& notification) {
  const std::string* object = objectString(notification);
  const auto item = object ? core::UpdateItem::fromJSONText(*object) : std::nullopt;
  if (!item) {
    collaborators_.postLog.malformed(logger_, notification,
                                     "Failed to decode item from notification.");
    return;
  }
  const bool listed = indexOf(item->id).has_value();
  if (listed) {
    collaborators_.postLog.debug(
        logger_, notification,
        "Item with ID " + item->id + " already exists in the updateItems array.");
  } else if (!notification.isFromRoot()) {
    // The companion offers only listed items; any other account could ask
    // root to install any catalogue entry.
    const std::string account = "uid " + std::to_string(notification.senderUid);
    refusals_.error(
        "unlisted " + account, "requests to install unlisted items from " + account, [&] {
          return "Ignored a request from uid " + std::to_string(notification.senderUid) +
                 " to install " + item->id + ": it is not in the update items list.";
        });
    return;
  }
  collaborators_.postLog.debug(logger_, notification,
                               "Received notification to enqueue item with ID: " + item->id);
  collaborators_.agentQueue.enqueue(*item);
}

void UIController::handleStateChange(const platform::DistributedNotification& notification) {
  const auto& info = notification.userInfo;
  const auto text = [&](const char* key) -> const std::string* {
    if (!info) return nullptr;
    const auto found = info->find(key);
    return found == info->end() ? nullptr : found->second.getIf<std::string>();
  };
  const std::string* id = text("id");
  const std::string* raw = text("state");
  const auto state = raw ? core::installStateFromRawValue(*raw) : std::nullopt;
  if (!info || info->empty() || !id || !state) {
    collaborators_.postLog.malformed(logger_, notification, "Invalid state change notification.");
    return;
  }
  const auto found = indexOf(*id);
  if (!found) {
    logger_.debug("Discarding state change notification alien ID " + *id + ".");
    return;
  }
  // Only the end of an install matters here; the install's course lives in
  // the tool and the notifier.
  if (*state != core::InstallState::installed) return;
  scheduleRemoval(updateItems_[*found], kInstalledRemovalDelay);
}

void UIController::scheduleRemoval(const core::UpdateItem& item, core::TimeInterval delay) {
  logger_.debug("Scheduling removal of update item: " + item.id + " after " + secondsText(delay) +
                " seconds.");
  core::startTask(
      collaborators_.mainExecutor,
      [](std::shared_ptr<UIController> self, core::UpdateItem item,
         core::TimeInterval delay) -> asio::awaitable<void> {
        co_await self->removeItem(std::move(item), delay);
      }(shared_from_this(), item, delay),
      logger_);
}

void UIController::postRemoveDeferrals(const core::UpdateItem& item) {
  logger_.debug("Sending notification to remove deferrals for app ID: " + item.id);
  collaborators_.notificationCenter.post(run::AgentNotificationName::removeDeferralsForItem,
                                         std::any(item));
}

asio::awaitable<void> UIController::removeItem(core::UpdateItem item, core::TimeInterval delay) {
  platform::Clock& clock = collaborators_.clock;
  co_await clock.sleep(core::toDuration(delay));
  // Goes by id: an item removed and added back meanwhile is removed all the same.
  if (!loaded_) removedBeforeLoad_.insert(item.id);
  const auto found = indexOf(item.id);
  if (!found) co_return;
  eraseAt(*found);
  logger_.debug("Removed update item: " + item.id);
  saveState(false);
}

// The update state file. File work runs on `itemUpdateQueue_`, in the order
// it was submitted, so the load comes before every save started after it.

void UIController::loadState() {
  asio::post(itemUpdateQueue_, [weak = weak_from_this(), work = fileWork_, url = updateStateFile_,
                                main = collaborators_.mainExecutor] {
    core::postLocked(main, weak, [items = work->load(url)](UIController& self) mutable {
      self.finishLoad(std::move(items));
    });
  });
}

// Observers are registered before the file is read, so items can arrive
// first. They are kept: the loaded list comes first, without the ids removed
// meanwhile, and what arrived overwrites or follows it. A save asked for in
// that time waits for the merge, so that it can't write a partial list over
// the file.
void UIController::finishLoad(std::optional<std::vector<core::UpdateItem>> loaded) {
  if (loaded) {
    fileLogger_.debug("Loaded update state for " + std::to_string(loaded->size()) + " items.");
  } else {
    fileLogger_.debug("No existing update state found. Starting fresh.");
  }
  std::vector<core::UpdateItem> arrived = std::move(updateItems_);
  updateItems_.clear();
  positions_.clear();
  if (loaded) {
    for (auto& item : *loaded) {
      // A file written by hand or by an older agent may repeat an id or hold
      // more than the list takes: the first of each id, and the first ones, stay.
      if (removedBeforeLoad_.count(item.id) || indexOf(item.id)) continue;
      if (updateItems_.size() == kMaxItems) {
        fileLogger_.error("The update state file holds more than " + std::to_string(kMaxItems) +
                          " items; kept the first " + std::to_string(kMaxItems) + ".");
        saveAfterLoad_ = true;
        break;
      }
      append(std::move(item));
    }
  }
  for (auto& item : arrived) {
    if (const auto found = indexOf(item.id)) {
      updateItems_[*found] = std::move(item);
    } else if (updateItems_.size() < kMaxItems) {
      append(std::move(item));
    }
  }
  removedBeforeLoad_.clear();
  loaded_ = true;
  itemCount_.set(updateItems_.size());
  if (std::exchange(saveAfterLoad_, false)) saveState(false);
}

void UIController::saveState(bool force) {
  if (!loaded_) {
    saveAfterLoad_ = true;
    return;
  }
  const platform::ElapsedPoint now = collaborators_.clock.elapsed();
  if (!force && lastSaveTime_) {
    const auto elapsed = std::chrono::duration_cast<core::TimeInterval>(now - *lastSaveTime_);
    if (elapsed < minSaveInterval) {
      const core::TimeInterval remaining =
          std::clamp(minSaveInterval - elapsed, core::TimeInterval{0}, minSaveInterval);
      char formatted[32];
      std::snprintf(formatted, sizeof formatted, "%.3f", remaining.count());
      if (delayedSaveWorkItem_) {
        fileLogger_.debug("Skipping save - delayed save already scheduled");
        return;
      }
      // Owned by this object, so the action may hold it by `this`.
      delayedSaveWorkItem_ = collaborators_.clock.scheduleAfter(
          core::toDuration(remaining), collaborators_.mainExecutor, [this] {
            core::postLocked(collaborators_.mainExecutor, weak_from_this(), [](UIController& self) {
              self.delayedSaveWorkItem_.reset();
              self.saveState(true);
            });
          });
      fileLogger_.debug(std::string("Skipping immediate save - scheduling delayed save in ") +
                        formatted + "s");
      return;
    }
  }
  delayedSaveWorkItem_.reset();
  lastSaveTime_ = now;
  asio::post(itemUpdateQueue_, [weak = weak_from_this(), work = fileWork_, items = updateItems_,
                                url = updateStateFile_, main = collaborators_.mainExecutor] {
    core::postLocked(main, weak, [failure = work->write(items, url)](UIController& self) {
      self.finishSave(failure);
    });
  });
}

// Main executor. The list stays in memory whatever the write did; after a
// failure the retry saves it as it then stands.
void UIController::finishSave(const std::optional<std::string>& failure) {
  if (failure) return retry_.failed(*failure);
  retry_.succeeded();
  scheduleQueueChangedNotification();
}

asio::awaitable<void> UIController::flush() {
  if (loaded_ && (delayedSaveWorkItem_ || retry_.retryPending())) saveState(true);
  // The file strand writes in order, and each write hands its outcome to the
  // main executor before this passes both.
  co_await asio::post(itemUpdateQueue_, asio::use_awaitable);
  co_await asio::post(collaborators_.mainExecutor, asio::use_awaitable);
}

void UIController::scheduleQueueChangedNotification() {
  // Replacing the handle cancels the pending post: a burst gives one post.
  notificationWorkItem_ = collaborators_.clock.scheduleAfter(
      core::toDuration(notificationDebounceInterval), collaborators_.mainExecutor, [this] {
        collaborators_.distributedCenter.post(Name::uiControllerQueueChanged);
        itemCount_.set(updateItems_.size());
        fileLogger_.debug("Distributed notification sent for save operation.");
      });
}

}  // namespace velmo::agent::items
