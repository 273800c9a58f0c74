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
                                   const std::string& key, const Recency& recency,
                                   const std::vector<std::uint32_t>& accounts) {
  if (record.deferrals && record.deferrals->size() > kMaxDetails) {
    auto& details = *record.deferrals;
    details.erase(details.begin(), details.end() - static_cast<std::ptrdiff_t>(kMaxDetails));
  }
  const auto age = [&](const core::DeferralMap::value_type& entry) {
    const auto known = recency.find(entry.first);
    return std::pair(lastDeferred(entry.second), known == recency.end() ? 0 : known->second);
  };
  // The oldest record but `key` that `keep` accepts; end() when none.
  const auto oldest = [&](const auto& keep) {
    auto found = records.end();
    for (auto entry = records.begin(); entry != records.end(); ++entry) {
      if (entry->first == key || !keep(entry->second)) continue;
      if (found == records.end() || age(*entry) < age(*found)) found = entry;
    }
    return found;
  };
  for (const std::uint32_t account : accounts) {
    if (record.deferredByAccount(account)) continue;
    const auto own = [account](const core::Deferral& other) {
      return other.deferredByAccount(account);
    };
    // Root's own programs are bounded by the file's bound alone.
    auto held =
        account == kRoot ? 0 : std::count_if(records.begin(), records.end(), [&](const auto& e) {
          return e.first != key && own(e.second);
        });
    for (; static_cast<std::size_t>(held) >= kMaxRecordsPerAccount; --held) {
      const auto given = oldest(own);
      auto& listed = *given->second.deferredBy;
      if (listed.size() == 1) {
        records.erase(given);
      } else {
        listed.erase(std::find(listed.begin(), listed.end(), account));
      }
    }
    auto& listed = record.deferredBy ? *record.deferredBy : record.deferredBy.emplace();
    listed.insert(std::upper_bound(listed.begin(), listed.end(), account), account);
  }
  records.insert_or_assign(key, std::move(record));
  while (records.size() > kMaxRecords) {
    records.erase(oldest([](const core::Deferral&) { return true; }));
  }
}

void DeferralStorageManager::remove(core::DeferralMap& records, const std::string& appId) {
  // By the record's own field, never by cutting the key: app ids may hold "_".
  std::erase_if(records, [&](const auto& entry) { return entry.second.appId == appId; });
}

}  // namespace velmo::agent::deferrals
