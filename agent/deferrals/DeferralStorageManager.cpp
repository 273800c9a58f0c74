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

core::DeferralMap DeferralStorageManager::load() {
  const auto text = files_.readFile(fileURL());
  if (!text.ok()) return {};
  auto records = core::decodeDeferralMap(text.value());
  if (!records) damaged_.keep(fileURL(), text.value(), "deferrals file");
  return std::move(records).value_or(core::DeferralMap{});
}

platform::FileResult<> DeferralStorageManager::createDirectory() {
  return files_.createDirectories(preferenceDirectory_);
}

platform::FileResult<> DeferralStorageManager::write(const core::DeferralMap& records) {
  const auto text = core::encodeDeferralMap(records);
  if (!text) {
    return platform::FileError{"The records couldn't be encoded.", "NSCocoaErrorDomain", 4866};
  }
  return files_.writeFileAtomically(fileURL(), *text);
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
