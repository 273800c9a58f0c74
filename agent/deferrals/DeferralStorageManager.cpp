#include "agent/deferrals/DeferralStorageManager.h"

namespace velmo::agent::deferrals {

DeferralStorageManager::DeferralStorageManager(platform::FileManager& files,
                                               std::filesystem::path preferenceDirectory,
                                               std::string preferenceFile)
    : files_(files),
      preferenceDirectory_(std::move(preferenceDirectory)),
      preferenceFile_(std::move(preferenceFile)) {}

core::DeferralMap DeferralStorageManager::load() const {
  const auto text = files_.readFile(fileURL());
  if (!text) return {};
  return core::decodeDeferralMap(*text).value_or(core::DeferralMap{});
}

// A plain write, as the siblings expect of this file: a crash in the middle
// leaves a damaged file, which the next read takes for an empty one.
void DeferralStorageManager::saveDeferral(const core::Deferral& record, const std::string& key) {
  if (auto error = files_.createDirectories(preferenceDirectory_)) {
    logger_.error("Failed to create directory or write file: " + error->description);
    return;
  }
  core::DeferralMap records = load();
  records.insert_or_assign(key, record);
  const auto text = core::encodeDeferralMap(records);
  if (!text) return;
  if (auto error = files_.writeFile(fileURL(), *text)) {
    logger_.error("Failed to create directory or write file: " + error->description);
  }
}

void DeferralStorageManager::removeDeferrals(const std::string& appId) {
  core::DeferralMap records = load();
  // By the record's own field, never by cutting the key: app ids may hold "_".
  std::erase_if(records, [&](const auto& entry) { return entry.second.appId == appId; });
  const auto text = core::encodeDeferralMap(records);
  if (!text) return;
  if (auto error = files_.writeFile(fileURL(), *text)) {
    logger_.error("Failed to remove deferral: " + error->description);
  }
}

}  // namespace velmo::agent::deferrals
