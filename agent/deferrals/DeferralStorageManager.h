#pragma once

#include <cstdint>
#include <filesystem>
#include <map>
#include <string>

#include "core/deferrals/Deferral.h"
#include "core/files/DamagedFileKeeper.h"
#include "core/logging/CustomLogger.h"
#include "platform/FileManager.h"

namespace velmo::agent::deferrals {

// The file work on the deferrals file: one JSON object of records, keyed by
// app id and target version. A file that can't be parsed counts as empty,
// after its bytes are kept beside it. Runs on the deferrals' file thread.
class DeferralStorageManager {
 public:
  // A user defers a handful of updates at a time, each a few times; any
  // account can post deferrals, so the file keeps the most recently deferred
  // records and each record's newest details. The count goes on counting.
  static constexpr std::size_t kMaxRecords = 1000;
  static constexpr std::size_t kMaxDetails = 100;
  // Per account: a user defers a few dozen updates at most. An account at
  // this bound replaces its own oldest record, never another account's, so
  // no account can push others' records out; the bound above is then only
  // reached by ten accounts at theirs.
  static constexpr std::size_t kMaxRecordsPerAccount = 100;
  static constexpr std::uint32_t kRoot = 0;

  DeferralStorageManager(platform::FileManager& files, std::filesystem::path preferenceDirectory,
                         std::string preferenceFile);

  // The records in the file; empty when it is missing or damaged.
  core::DeferralMap load();
  platform::FileResult<> createDirectory();
  // Replaces the file with `records` in one durable step: readers never see
  // a part, and a failure leaves the old file whole.
  platform::FileResult<> write(const core::DeferralMap& records);

  // The order in which this process last changed records, by key, oldest
  // lowest: the file keeps whole seconds, and a burst fills many in one.
  using Recency = std::map<std::string, std::uint64_t>;

  // Stores `record` under `key`, replacing an older one, as deferred (also)
  // by `accounts`, and keeps the bounds: the record keeps its newest details;
  // an account but root with the most records of its own gives up its own oldest (the
  // record goes when no other account deferred it, else it just no longer
  // lists this one); beyond the most records overall the one deferred
  // longest ago goes. Oldest: by last detail, then by `recency`.
  static void store(core::DeferralMap& records, core::Deferral record, const std::string& key,
                    const Recency& recency, const std::vector<std::uint32_t>& accounts = {});
  // Drops every record whose own app id is `appId`, of any target version.
  static void remove(core::DeferralMap& records, const std::string& appId);

  std::filesystem::path fileURL() const { return preferenceDirectory_ / preferenceFile_; }

 private:
  platform::FileManager& files_;
  core::CustomLogger logger_{"DeferralStorageManager"};
  core::DamagedFileKeeper damaged_{files_, logger_};
  std::filesystem::path preferenceDirectory_;
  std::string preferenceFile_;
};

}  // namespace velmo::agent::deferrals
