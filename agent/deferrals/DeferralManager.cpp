#include "agent/deferrals/DeferralManager.h"

#include "core/DialogResponse.h"
#include "core/NotificationNames.h"
#include "core/UpdateItem.h"

namespace velmo::agent::deferrals {

namespace Name = core::NotificationName;

DeferralManager::DeferralManager(const Collaborators& collaborators)
    : collaborators_(collaborators),
      storageManager_(collaborators.files, collaborators.paths.deferralsFile().parent_path(),
                      collaborators.paths.deferralsFile().filename().string()) {
  logger_.debug("Initializing DeferralManager.");
  auto& center = collaborators_.distributedCenter;
  distributedObservers_.push_back(center.addObserver(
      Name::dialogResponse,
      [this](const platform::DistributedNotification& n) { processUpdateDialogResponse(n); }));
  distributedObservers_.push_back(center.addObserver(
      Name::didPerformInstall,
      [this](const platform::DistributedNotification& n) { processInstallation(n); }));
  localObserver_ = collaborators_.notificationCenter.addObserver(
      Name::removeDeferralsForItem,
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
    logger_.error("Failed to decode dialog response notification.");
    return;
  }
  if (!response->response.isDeferral()) {
    logger_.debug("Received non-deferral dialog response: " + response->response.description());
    return;
  }
  logger_.debug("Received deferral dialog response: " + response->response.description() + " for " +
                response->appId);
  recordDeferral(response->appId, response->targetVersion, response->response.reasonText());
  postDeferralsDidChange();
}

void DeferralManager::recordDeferral(const std::string& appId, const std::string& targetVersion,
                                     const std::string& reason) {
  const std::string key = appId + "_" + targetVersion;
  const core::DeferralMap records = storageManager_.load();
  const auto found = records.find(key);
  core::Deferral record =
      found != records.end() ? found->second : core::Deferral::make(appId, targetVersion);
  const std::int64_t count = record.deferralCount.value_or(0);
  logger_.debug("Loaded deferral: " + record.identifier + ", count: " + std::to_string(count));
  record.deferralCount = count + 1;
  logger_.debug("Incremented deferral count to: " + std::to_string(*record.deferralCount));
  if (!record.deferrals) record.deferrals.emplace();
  const core::DeferralDetail detail{collaborators_.clock.now(), reason};
  record.deferrals->push_back(detail);
  logger_.debug("Appended deferral detail: " + detail.description());
  storageManager_.saveDeferral(record, key);
  logger_.debug("Saved deferral for key: " + key);
}

void DeferralManager::processInstallation(const platform::DistributedNotification& notification) {
  const auto item =
      notification.object ? core::UpdateItem::fromJSONText(*notification.object) : std::nullopt;
  if (!item) {
    logger_.error("Failed to decode item from notification.");
    return;
  }
  logger_.debug("[" + item->id + "] Received successful installation notice.");
  storageManager_.removeDeferrals(item->id);
  logger_.debug("[" + item->id + "] Deferrals removed.");
  postDeferralsDidChange();
}

void DeferralManager::handleRemoveDeferralsForItem(const std::any& object) {
  const auto* item = std::any_cast<core::UpdateItem>(&object);
  if (!item) {
    logger_.error("Failed to decode item from notification.");
    return;
  }
  logger_.debug("[" + item->id + "] Received request to remove deferrals for item.");
  storageManager_.removeDeferrals(item->id);
  logger_.debug("[" + item->id + "] Deferrals removed.");
  postDeferralsDidChange();
}

void DeferralManager::postDeferralsDidChange() {
  logger_.debug("Posting deferrals updated notification.");
  collaborators_.distributedCenter.post(Name::deferralsDidChange);
}

}  // namespace velmo::agent::deferrals
