#pragma once

#include <filesystem>
#include <optional>

#include "agent/run/PlistKey.h"
#include "core/logging/CustomLogger.h"
#include "core/values/PlistValue.h"
#include "platform/FileManager.h"

namespace velmo::agent::run {

// Reads and writes the agent state file. Keeps nothing in memory: each call
// goes to the file. Used on the main executor, which keeps one instance's
// read-change-write from mixing with another's.
class PlistManager {
 public:
  PlistManager(platform::FileManager& files, std::filesystem::path url);

  // The key's value; a string that reads as an ISO 8601 date comes back as a
  // date. Nothing when the file is missing or damaged, or lacks the key.
  std::optional<core::PlistValue> value(PlistKey key) const;
  // Stores the value (a date as its ISO 8601 string), keeping every other key,
  // and writes the file as XML in one step. A failure is logged; the old file
  // stays as it was.
  void setValue(const core::PlistValue& value, PlistKey key);

 private:
  std::optional<core::PlistDictionary> load() const;

  platform::FileManager& files_;
  std::filesystem::path url_;
  core::CustomLogger logger_{"PlistManager"};
};

}  // namespace velmo::agent::run
