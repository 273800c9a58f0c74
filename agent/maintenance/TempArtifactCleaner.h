#pragma once

#include <filesystem>
#include <vector>

#include "core/logging/CustomLogger.h"
#include "platform/Clock.h"
#include "platform/FileManager.h"

namespace velmo::agent::maintenance {

// Removes installers' leftover temporary entries from the application
// folders. An entry's age is the time in its name; the file system's dates
// play no part. At most kRemovalLimit removals per folder and cycle. Each
// folder is the fixed folder of its own scan: a link in it is an entry.
class TempArtifactCleaner {
 public:
  static constexpr int kRemovalLimit = 10;

  // `directories` are cleaned in this order.
  TempArtifactCleaner(platform::FileManager& files, const platform::Clock& clock,
                      std::vector<std::filesystem::path> directories, core::CustomLogger logger);

  void cleanUpTempArtifacts(int olderThanDays) const;

 private:
  void cleanUp(const std::filesystem::path& directory, int olderThanDays) const;

  platform::FileManager& files_;
  const platform::Clock& clock_;
  std::vector<std::filesystem::path> directories_;
  core::CustomLogger logger_;
};

}  // namespace velmo::agent::maintenance
