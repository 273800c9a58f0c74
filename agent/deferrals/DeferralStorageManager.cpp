#include "agent/deferrals/DeferralStorageManager.h"

#include <algorithm>

namespace velmo::agent::deferrals {
namespace {

// When a record was last deferred; a record without details counts as oldest.
platform::TimePoint lastDeferred(const core::Deferral& record) {
  if (!record.deferrals || record.deferrals->empty()) return platform::TimePoint::min();
  return record.deferrals->back().timestamp;
}

}  // namespace

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

bool DeferralStorageManager::createDirectory() {
  if (auto error = files_.createDirectories(preferenceDirectory_)) {
    logger_.error("Failed to create directory or write file: " + error->description);
    return false;
  }
  return true;
}

// A plain write, as the siblings expect of this file: a crash in the middle
// leaves a damaged file, which the next read takes for an empty one.
void DeferralStorageManager::write(const core::DeferralMap& records,
                                   std::string_view failurePrefix) {
  const auto text = core::encodeDeferralMap(records);
  if (!text) return;
  if (auto error = files_.writeFile(fileURL(), *text)) {
    logger_.error(std::string(failurePrefix) + error->description);
  }
}

void DeferralStorageManager::store(core::DeferralMap& records, core::Deferral record,
                                   const std::string& key, const Recency& recency) {
  if (record.deferrals && record.deferrals->size() > kMaxDetails) {
    auto& details = *record.deferrals;
    details.erase(details.begin(), details.end() - static_cast<std::ptrdiff_t>(kMaxDetails));
  }
  records.insert_or_assign(key, std::move(record));
  const auto age = [&](const core::DeferralMap::value_type& entry) {
    const auto known = recency.find(entry.first);
    return std::pair(lastDeferred(entry.second), known == recency.end() ? 0 : known->second);
  };
  while (records.size() > kMaxRecords) {
    auto oldest = records.end();
    for (auto entry = records.begin(); entry != records.end(); ++entry) {
      if (entry->first == key) continue;
      if (oldest == records.end() || age(*entry) < age(*oldest)) oldest = entry;
    }
    records.erase(oldest);
  }
}

void DeferralStorageManager::remove(core::DeferralMap& records, const std::string& appId) {
  // By the record's own field, never by cutting the key: app ids may hold "_".
  std::erase_if(records, [&](const auto& entry) { return entry.second.appId == appId; });
}

}  // namespace velmo::agent::deferrals
