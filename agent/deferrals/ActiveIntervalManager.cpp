#include "agent/deferrals/ActiveIntervalManager.h"

#include <algorithm>

#include <asio/post.hpp>

#include "core/URL.h"
#include "core/notifications/NotificationNames.h"

namespace velmo::agent::deferrals {

namespace Name = core::NotificationName;

ActiveIntervalManager::ActiveIntervalManager(const Collaborators& collaborators,
                                             std::shared_ptr<items::UIController> uiController)
    : collaborators_(collaborators), uiController_(std::move(uiController)) {
  logger_.debug("Initializing ActiveIntervalManager.");
  observe(Name::willPerformInstall, &ActiveIntervalManager::handleWillPerformInstall);
  observe(Name::didPerformInstall, &ActiveIntervalManager::handleDidPerformInstall);
  observe(Name::dialogResponse, &ActiveIntervalManager::handleDialogResponse);
  logger_.debug("Registering for NSWorkspace.didTerminateApplicationNotification.");
  terminationObserver_ = collaborators_.terminations.addObserver(
      [this](const std::optional<std::filesystem::path>& bundle) {
        handleTerminationNotification(bundle);
      });
}

ActiveIntervalManager::~ActiveIntervalManager() {
  logger_.debug("Deinitializing ActiveIntervalManager.");
  for (const auto& token : observers_) collaborators_.distributedCenter.removeObserver(token);
  collaborators_.terminations.removeObserver(terminationObserver_);
}

// Each notification's work runs as a task of its own on the main executor.
void ActiveIntervalManager::observe(
    std::string_view name,
    void (ActiveIntervalManager::*handler)(const platform::DistributedNotification&)) {
  observers_.push_back(collaborators_.distributedCenter.addObserver(
      name,
      lifetime_.deferring<platform::DistributedNotification>(
          collaborators_.mainExecutor,
          [this, handler](const platform::DistributedNotification& n) { (this->*handler)(n); })));
}

std::string ActiveIntervalManager::normalizedPath(const std::string& path) {
  // A relative path is taken from the root, as for a dialog response's URL.
  const auto url = core::URL::fileURLWithPath(path.starts_with('/') ? path : "/" + path);
  return url ? url->path() : path;
}

void ActiveIntervalManager::handleDialogResponse(
    const platform::DistributedNotification& notification) {
  const auto response =
      notification.object ? core::DialogResponse::fromJSONText(*notification.object) : std::nullopt;
  if (!response) {
    collaborators_.postLog.malformed(logger_, notification,
                                     "Failed to decode notification object to DialogResponse.");
    return;
  }
  if (!response->response.isDeferral()) {
    collaborators_.postLog.debug(logger_, notification, "Dialog response was not a deferral.");
    return;
  }
  const auto kept = remembered(*response, notification);
  if (!kept) return;
  collaborators_.postLog.debug(
      logger_, notification,
      "Adding " + response->appId + " to recently deferred apps to monitor.");
  // The first response of an identifier stays; a later one changes nothing.
  insertBounded(recentlyDeferredApps_, *kept);
}

std::optional<core::DialogResponse> ActiveIntervalManager::remembered(
    const core::DialogResponse& response, const platform::DistributedNotification& post) const {
  if (post.isFromRoot()) return response;
  const auto& items = uiController_->updateItems();
  const auto listed = std::find_if(items.begin(), items.end(), [&](const core::UpdateItem& item) {
    return item.id == response.appId;
  });
  if (listed == items.end()) {
    collaborators_.postLog.debug(logger_, post,
                                 "Not watching " + response.appId + " for quits: uid " +
                                     std::to_string(post.senderUid) +
                                     " deferred an item that isn't listed.");
    return std::nullopt;
  }
  auto kept = core::DialogResponse::fromItem(*listed, response.response);
  kept.identifier = response.identifier;
  return kept;
}

// Keeps the first element of each identity; the oldest goes when the set is full.
template <typename T>
void ActiveIntervalManager::insertBounded(std::vector<T>& set, const T& element) {
  if (std::find(set.begin(), set.end(), element) != set.end()) return;
  if (set.size() >= kMaxEntries) set.erase(set.begin());
  set.push_back(element);
}

std::optional<core::UpdateItem> ActiveIntervalManager::decodedItem(
    const platform::DistributedNotification& notification) const {
  auto item =
      notification.object ? core::UpdateItem::fromJSONText(*notification.object) : std::nullopt;
  if (!item) {
    collaborators_.postLog.malformed(logger_, notification,
                                     "Failed to decode item from notification.");
  }
  return item;
}

void ActiveIntervalManager::handleWillPerformInstall(
    const platform::DistributedNotification& notification) {
  const auto item = decodedItem(notification);
  if (!item) return;
  const auto deferred = std::find_if(
      recentlyDeferredApps_.begin(), recentlyDeferredApps_.end(),
      [&](const core::DialogResponse& response) { return response.identifier == item->id; });
  if (deferred != recentlyDeferredApps_.end()) {
    logger_.debug("Removing deferral for " + item->id);
    recentlyDeferredApps_.erase(deferred);
  } else {
    logger_.debug("No matching deferral found for " + item->id);
  }
  if (std::find(ignoredApps_.begin(), ignoredApps_.end(), *item) == ignoredApps_.end()) {
    logger_.debug("Adding " + item->id + " to ignored apps.");
    insertBounded(ignoredApps_, *item);
  }
}

void ActiveIntervalManager::handleDidPerformInstall(
    const platform::DistributedNotification& notification) {
  const auto item = decodedItem(notification);
  if (!item) return;
  const auto ignored = std::find(ignoredApps_.begin(), ignoredApps_.end(), *item);
  if (ignored != ignoredApps_.end()) {
    logger_.debug("Removing " + item->id + " from ignored apps.");
    ignoredApps_.erase(ignored);
  } else {
    logger_.debug("No matching ignored app found for " + item->id);
  }
}

void ActiveIntervalManager::handleTerminationNotification(
    const std::optional<std::filesystem::path>& bundle) {
  logger_.debug("Received application termination notification.");
  if (!bundle || bundle->empty()) {
    logger_.debug("Failed to get terminated app information.");
    return;
  }
  const std::string path = normalizedPath(bundle->string());
  const auto samePath = [&](const std::string& other) { return normalizedPath(other) == path; };
  if (std::any_of(ignoredApps_.begin(), ignoredApps_.end(),
                  [&](const core::UpdateItem& item) { return samePath(item.installPath); })) {
    logger_.debug("Terminated app is in the ignored list, skipping active interval update.");
    return;
  }
  std::optional<std::string> identifier;
  for (const auto& item : uiController_->updateItems()) {
    if (samePath(item.installPath)) {
      identifier = item.id;
      logger_.debug("Matching app found in Velmo Menu Bar App update list: " + path);
      break;
    }
  }
  if (!identifier) {
    logger_.debug("No matching app found in Velmo Menu Bar App update list: " + path);
    for (const auto& response : recentlyDeferredApps_) {
      if (samePath(response.path())) {
        identifier = response.appId;
        break;
      }
    }
    if (!identifier) {
      logger_.debug("No matching deferral found for terminated app: " + path);
      return;
    }
    logger_.debug("Matching deferral found for terminated app: " + path);
  }
  // Any user can start and quit a listed application again and again: while
  // its update is in work, a further quit starts no second run.
  if (!inWork_.insert(*identifier).second) {
    logger_.debug("Active interval update for " + *identifier + " already in progress.");
    return;
  }
  core::startTask(
      collaborators_.mainExecutor,
      [](ActiveIntervalManager& manager, core::Lifetime::Token alive,
         std::string identifier) -> asio::awaitable<void> {
        platform::Clock& clock = manager.collaborators_.clock;
        co_await clock.sleep(core::toDuration(kSettleDelay));
        if (*alive) manager.activeIntervalUpdate(identifier);
      }(*this, lifetime_.token(), *identifier),
      logger_);
}

void ActiveIntervalManager::activeIntervalUpdate(const std::string& identifier) {
  const auto done = [this, alive = lifetime_.token(), identifier](int status) {
    if (!*alive) return;
    inWork_.erase(identifier);
    if (status == run::VelmoRunner::kNotStarted) return;
    logger_.info("Processing Active Interval update for: " + identifier);
    if (status != 0) {
      logger_.error("Failed to process Active Interval update for " + identifier +
                    " with exit code " + std::to_string(status));
    }
  };
  // Merged into an install of the same id, or beyond the queue's bound.
  if (!collaborators_.agentQueue.enqueueRun(identifier, updateCommand(identifier), kUpdateLimit,
                                            done)) {
    inWork_.erase(identifier);
  }
}

std::vector<std::string> ActiveIntervalManager::updateCommand(const std::string& identifier) {
  return {"install", identifier, "--update-only", "--silent", "--active-interval-update"};
}

}  // namespace velmo::agent::deferrals
