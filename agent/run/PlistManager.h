#pragma once

#include <filesystem>
#include <memory>
#include <optional>

#include "agent/run/PlistKey.h"
#include "core/Executors.h"
#include "core/files/DamagedFileKeeper.h"
#include "core/files/WriteRetry.h"
#include "core/logging/CustomLogger.h"
#include "core/values/PlistValue.h"
#include "platform/Clock.h"
#include "platform/FileManager.h"

namespace velmo::agent::run {

// Reads and writes the agent state file. Each call goes to the file, but a
// value that could not be written (a full disk) is kept in memory, read back
// from there, and written with the next attempt. Used on the main executor,
// which keeps one instance's read-change-write from mixing with another's.
class PlistManager {
 public:
  // What the agent's own instances retry with; a reader (the console) has none.
  struct Retries {
    platform::Clock& clock;
    core::Executor executor;
  };

  PlistManager(platform::FileManager& files, std::filesystem::path url,
               std::optional<Retries> retries = std::nullopt);
  // The retry holds this instance by its address.
  PlistManager(const PlistManager&) = delete;
  PlistManager& operator=(const PlistManager&) = delete;

  // The key's value; a string that reads as an ISO 8601 date comes back as a
  // date. Nothing when the file is missing or damaged, or lacks the key.
  std::optional<core::PlistValue> value(PlistKey key) const;
  // Stores the value (a date as its ISO 8601 string), keeping every other key,
  // and writes the file as XML in one durable step. A failure is logged once
  // an episode; the old file stays whole and the value waits in memory.
  void setValue(const core::PlistValue& value, PlistKey key);

 private:
  std::optional<core::PlistDictionary> load() const;
  void write();

  platform::FileManager& files_;
  std::filesystem::path url_;
  core::CustomLogger logger_{"PlistManager"};
  // Values set but not yet on disk, by key string.
  core::PlistDictionary unwritten_;
  // Only with retries: a reader leaves damaged files and faults to the agent.
  std::unique_ptr<core::WriteRetry> retry_;
  std::unique_ptr<core::DamagedFileKeeper> damaged_;
};

}  // namespace velmo::agent::run
