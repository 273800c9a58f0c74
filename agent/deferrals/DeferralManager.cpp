#include "agent/deferrals/DeferralManager.h"

#include <algorithm>
#include <limits>

#include <asio/post.hpp>
#include <asio/use_awaitable.hpp>

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
      fileStrand_(core::makeSerialExecutor(collaborators.fileExecutor)),
      retry_(logger_, collaborators.clock, collaborators.mainExecutor,
             "the deferrals file " + collaborators.paths.deferralsFile().string(), [this] {
               retryWanted_ = true;
               writeWaitingChanges();
             }) {
  logger_.debug("Initializing DeferralManager.");
  // A damaged file is kept for the administrator before anything overwrites it.
  asio::post(fileStrand_, [work = fileWork_] { (void)work->storageManager.load(); });
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
    collaborators_.postLog.malformed(logger_, notification,
                                     "Failed to decode dialog response notification.");
    return;
  }
  if (!response->response.isDeferral()) {
    collaborators_.postLog.debug(
        logger_, notification,
        "Received non-deferral dialog response: " + response->response.description());
    return;
  }
  collaborators_.postLog.debug(logger_, notification,
                               "Received deferral dialog response: " +
                                   response->response.description() + " for " + response->appId);
  recordDeferral(response->appId, response->targetVersion, response->response.reasonText(),
                 notification.senderUid);
}

void DeferralManager::recordDeferral(const std::string& appId, const std::string& targetVersion,
                                     const std::string& reason, std::uint32_t account) {
  submit({false, appId, targetVersion, {{collaborators_.clock.now(), reason}}, 0, {account}});
}

void DeferralManager::processInstallation(const platform::DistributedNotification& notification) {
  const auto item =
      notification.object ? core::UpdateItem::fromJSONText(*notification.object) : std::nullopt;
  if (!item) {
    collaborators_.postLog.malformed(logger_, notification,
                                     "Failed to decode item from notification.");
    return;
  }
  logger_.debug("[" + item->id + "] Received successful installation notice.");
  submit({true, item->id, {}, {}, 0});
}

void DeferralManager::handleRemoveDeferralsForItem(const std::any& object) {
  const auto* item = std::any_cast<core::UpdateItem>(&object);
  if (!item) {
    logger_.error("Failed to decode item from notification.");
    return;
  }
  logger_.debug("[" + item->id + "] Received request to remove deferrals for item.");
  submit({true, item->id, {}, {}, 0});
}

void DeferralManager::submit(Change change) {
  if (change.isRemoval) {
    std::erase_if(waitingRecords_,
                  [&](const auto& entry) { return waiting_[entry.second].appId == change.appId; });
  } else if (const auto found = waitingRecords_.find(change.appId + "_" + change.targetVersion);
             found != waitingRecords_.end()) {
    Change& waiting = waiting_[found->second];
    waiting.details.push_back(std::move(change.details.front()));
    for (const std::uint32_t account : change.accounts) {
      const auto at = std::lower_bound(waiting.accounts.begin(), waiting.accounts.end(), account);
      if (at == waiting.accounts.end() || *at != account) waiting.accounts.insert(at, account);
    }
    if (waiting.details.size() > DeferralStorageManager::kMaxDetails) {
      waiting.details.erase(waiting.details.begin());
      ++waiting.foldedAway;
    }
    return;
  }
  if (waiting_.size() >= kMaxWaitingChanges) {
    drops_.error("full", "deferral changes dropped while the file was busy", [&] {
      return "Dropped a deferral change for " + change.appId + ": " +
             std::to_string(kMaxWaitingChanges) + " changes already wait to be written.";
    });
    return;
  }
  if (!change.isRemoval) {
    waitingRecords_[change.appId + "_" + change.targetVersion] = waiting_.size();
  }
  waiting_.push_back(std::move(change));
  writeWaitingChanges();
}

// One write at a time; what arrives meanwhile goes into the next one, so a
// burst of changes costs a few writes, and each write one post.
void DeferralManager::writeWaitingChanges() {
  if (writing_ || (waiting_.empty() && !retryWanted_)) return;
  writing_ = true;
  retryWanted_ = false;
  waitingRecords_.clear();
  asio::post(fileStrand_, [work = fileWork_, changes = std::exchange(waiting_, {}),
                           main = collaborators_.mainExecutor, alive = lifetime_.token(), this] {
    auto failure = work->apply(changes);
    asio::post(main, [alive, this, failure = std::move(failure), changed = !changes.empty()] {
      if (*alive) finishWrite(failure, changed);
    });
  });
}

asio::awaitable<void> DeferralManager::flush() {
  // Two rounds: a write in flight, then what waited behind it.
  for (int round = 0; round < 2 && (writing_ || !waiting_.empty() || retry_.retryPending());
       ++round) {
    if (retry_.retryPending()) retryWanted_ = true;
    writeWaitingChanges();
    co_await asio::post(fileStrand_, asio::use_awaitable);
    co_await asio::post(collaborators_.mainExecutor, asio::use_awaitable);
  }
}

void DeferralManager::finishWrite(const std::optional<std::string>& failure, bool changed) {
  writing_ = false;
  if (failure) {
    retry_.failed(*failure);
  } else {
    retry_.succeeded();
  }
  // Readers learn of every accepted change, as before; a retry that wrote
  // what they were already told of tells them the file now has it.
  if (changed || !failure) postDeferralsDidChange();
  writeWaitingChanges();
}

std::optional<std::string> DeferralManager::FileWork::apply(const std::vector<Change>& changes) {
  const bool records = std::any_of(changes.begin(), changes.end(),
                                   [](const Change& change) { return !change.isRemoval; });
  // What failed to be written is newer than the file: it goes on from there.
  core::DeferralMap map = unwritten ? std::move(*unwritten) : storageManager.load();
  unwritten.reset();
  for (const auto& change : changes) {
    if (change.isRemoval) {
      DeferralStorageManager::remove(map, change.appId);
      logger.debug("[" + change.appId + "] Deferrals removed.");
    } else {
      count(map, change);
    }
  }
  std::erase_if(recency, [&](const auto& entry) { return !map.count(entry.first); });
  // A retry may carry records; only a batch of removals alone leaves the folder be.
  const bool recording = records || changes.empty();
  const std::string prefix =
      recording ? "Failed to create directory or write file: " : "Failed to remove deferral: ";
  if (recording) {
    if (const auto created = storageManager.createDirectory();
        const auto* error = created.error()) {
      unwritten = std::move(map);
      return prefix + error->description;
    }
  }
  const auto written = storageManager.write(map);
  if (const auto* error = written.error()) {
    unwritten = std::move(map);
    return prefix + error->description;
  }
  return std::nullopt;
}

void DeferralManager::FileWork::count(core::DeferralMap& map, const Change& change) {
  const std::string key = change.appId + "_" + change.targetVersion;
  const auto found = map.find(key);
  core::Deferral record =
      found != map.end() ? found->second : core::Deferral::make(change.appId, change.targetVersion);
  std::int64_t count = record.deferralCount.value_or(0);
  logger.debug("Loaded deferral: " + record.identifier + ", count: " + std::to_string(count));
  // Saturates: a record deferred 2^63 times stays at the top.
  constexpr std::int64_t kMost = std::numeric_limits<std::int64_t>::max();
  const std::int64_t added = change.foldedAway + static_cast<std::int64_t>(change.details.size());
  count = count <= kMost - added ? count + added : kMost;
  record.deferralCount = count;
  logger.debug("Incremented deferral count to: " + std::to_string(count));
  if (!record.deferrals) record.deferrals.emplace();
  for (const auto& detail : change.details) {
    record.deferrals->push_back(detail);
    logger.debug("Appended deferral detail: " + detail.description());
  }
  recency[key] = ++changes;
  DeferralStorageManager::store(map, std::move(record), key, recency, change.accounts);
  logger.debug("Saved deferral for key: " + key);
}

void DeferralManager::postDeferralsDidChange() {
  logger_.debug("Posting deferrals updated notification.");
  collaborators_.distributedCenter.post(Name::deferralsDidChange);
}

}  // namespace velmo::agent::deferrals
