#pragma once

#include <filesystem>
#include <string>

#include "core/CustomLogger.h"
#include "core/Deferral.h"
#include "platform/FileManager.h"

namespace velmo::agent::deferrals {

// The file work on the deferrals file: one JSON object of records, keyed by
// app id and target version. Holds nothing in memory; every operation reads
// the file again, and one that can't be read or parsed counts as empty.
class DeferralStorageManager {
 public:
  DeferralStorageManager(platform::FileManager& files, std::filesystem::path preferenceDirectory,
                         std::string preferenceFile);

  // The records in the file; empty when it is missing or damaged.
  core::DeferralMap load() const;
  // Stores `record` under `key`, replacing an older one, keeping the others.
  void saveDeferral(const core::Deferral& record, const std::string& key);
  // Drops every record whose own app id is `appId`, of any target version.
  void removeDeferrals(const std::string& appId);

  std::filesystem::path fileURL() const { return preferenceDirectory_ / preferenceFile_; }

 private:
  platform::FileManager& files_;
  core::CustomLogger logger_{"DeferralStorageManager"};
  std::filesystem::path preferenceDirectory_;
  std::string preferenceFile_;
};

}  // namespace velmo::agent::deferrals
