#include "agent/deferrals/DeferralManager.h"

#include <algorithm>
#include <limits>

#include <asio/post.hpp>

#include "agent/run/AgentNotificationNames.h"
#include "core/deferrals/DialogResponse.h"
#include "core/items/UpdateItem.h"
#include "core/notifications/NotificationNames.h"

namespace velmo::agent::deferrals {

namespace Name = core::NotificationName;

DeferralManager::DeferralManager(const Collaborators& collaborators)
    : collaborators_(collaborators),
      fileWork_(std::make_shared<FileWork>(FileWork{DeferralStorageManager(
          collaborators.files, collaborators.paths.deferralsFile().parent_path(),
          collaborators.paths.deferralsFile().filename().string())})),
      fileStrand_(core::makeSerialExecutor(collaborators.fileExecutor)) {
  logger_.debug("Initializing DeferralManager.");
  auto& center = collaborators_.distributedCenter;
  distributedObservers_.push_back(center.addObserver(
      Name::dialogResponse,
      [this](const platform::DistributedNotification& n) { processUpdateDialogResponse(n); }));
  distributedObservers_.push_back(center.addObserver(
      Name::didPerformInstall,
      [this](const platform::DistributedNotification& n) { processInstallation(n); }));
  localObserver_ = collaborators_.notificationCenter.addObserver(
      run::AgentNotificationName::removeDeferralsForItem,
      [this](const std::any& object) { handleRemoveDeferralsForItem(object); });
}

DeferralManager::~DeferralManager() {
  logger_.debug("Deinitializing DeferralManager.");
  for (const auto& token : distributedObservers_) {
    collaborators_.distributedCenter.removeObserver(token);
  }
  collaborators_.notificationCenter.removeObserver(localObserver_);
}

void DeferralManager::processUpdateDialogResponse(
    const platform::DistributedNotification& notification) {
  const auto response =
      notification.object ? core::DialogResponse::fromJSONText(*notification.object) : std::nullopt;
  if (!response) {
    collaborators_.malformedPosts.error(logger_, notification.name, notification.postNumber,
                                        "Failed to decode dialog response notification.");
    return;
  }
  if (!response->response.isDeferral()) {
    logger_.debug("Received non-deferral dialog response: " + response->response.description());
    return;
  }
  logger_.debug("Received deferral dialog response: " + response->response.description() + " for " +
                response->appId);
  recordDeferral(response->appId, response->targetVersion, response->response.reasonText());
}

void DeferralManager::recordDeferral(const std::string& appId, const std::string& targetVersion,
                                     const std::string& reason) {
  submit({false, appId, targetVersion, {collaborators_.clock.now(), reason}});
}

void DeferralManager::processInstallation(const platform::DistributedNotification& notification) {
  const auto item =
      notification.object ? core::UpdateItem::fromJSONText(*notification.object) : std::nullopt;
  if (!item) {
    collaborators_.malformedPosts.error(logger_, notification.name, notification.postNumber,
                                        "Failed to decode item from notification.");
    return;
  }
  logger_.debug("[" + item->id + "] Received successful installation notice.");
  submit({true, item->id, {}, {}});
}

void DeferralManager::handleRemoveDeferralsForItem(const std::any& object) {
  const auto* item = std::any_cast<core::UpdateItem>(&object);
  if (!item) {
    logger_.error("Failed to decode item from notification.");
    return;
  }
  logger_.debug("[" + item->id + "] Received request to remove deferrals for item.");
  submit({true, item->id, {}, {}});
}

void DeferralManager::submit(Change change) {
  if (waiting_.size() >= kMaxWaitingChanges) {
    drops_.error("full", "deferral changes dropped while the file was busy", [&] {
      return "Dropped a deferral change for " + change.appId + ": " +
             std::to_string(kMaxWaitingChanges) + " changes already wait to be written.";
    });
    return;
  }
  waiting_.push_back(std::move(change));
  writeWaitingChanges();
}

// One write at a time; what arrives meanwhile goes into the next one, so a
// burst of changes costs a few writes, and each write one post.
void DeferralManager::writeWaitingChanges() {
  if (writing_ || waiting_.empty()) return;
  writing_ = true;
  asio::post(fileStrand_, [work = fileWork_, changes = std::exchange(waiting_, {}),
                           main = collaborators_.mainExecutor, alive = lifetime_.token(), this] {
    work->apply(changes);
    asio::post(main, [alive, this] {
      if (!*alive) return;
      writing_ = false;
      postDeferralsDidChange();
      writeWaitingChanges();
    });
  });
}

void DeferralManager::FileWork::apply(const std::vector<Change>& changes) {
  const bool records = std::any_of(changes.begin(), changes.end(),
                                   [](const Change& change) { return !change.isRemoval; });
  if (records && !storageManager.createDirectory()) return;
  core::DeferralMap map = storageManager.load();
  for (const auto& change : changes) {
    if (change.isRemoval) {
      DeferralStorageManager::remove(map, change.appId);
      logger.debug("[" + change.appId + "] Deferrals removed.");
      continue;
    }
    const std::string key = change.appId + "_" + change.targetVersion;
    const auto found = map.find(key);
    core::Deferral record = found != map.end()
                                ? found->second
                                : core::Deferral::make(change.appId, change.targetVersion);
    const std::int64_t count = record.deferralCount.value_or(0);
    logger.debug("Loaded deferral: " + record.identifier + ", count: " + std::to_string(count));
    // Saturates: a record deferred 2^63 times stays at the top.
    record.deferralCount = count < std::numeric_limits<std::int64_t>::max() ? count + 1 : count;
    logger.debug("Incremented deferral count to: " + std::to_string(*record.deferralCount));
    if (!record.deferrals) record.deferrals.emplace();
    record.deferrals->push_back(change.detail);
    logger.debug("Appended deferral detail: " + change.detail.description());
    DeferralStorageManager::store(map, std::move(record), key);
    logger.debug("Saved deferral for key: " + key);
  }
  storageManager.write(
      map, records ? "Failed to create directory or write file: " : "Failed to remove deferral: ");
}

void DeferralManager::postDeferralsDidChange() {
  logger_.debug("Posting deferrals updated notification.");
  collaborators_.distributedCenter.post(Name::deferralsDidChange);
}

}  // namespace velmo::agent::deferrals
