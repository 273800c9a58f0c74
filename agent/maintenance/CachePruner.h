#pragma once

#include <filesystem>

#include "core/logging/CustomLogger.h"
#include "platform/Clock.h"
#include "platform/FileManager.h"

namespace velmo::agent::maintenance {

// Deletes the tool's old install media: regular files exactly two levels
// below the cache root whose creation date is older than the limit, then the
// folders this leaves empty. Stays out of application bundles, never removes
// the root, and deletes at most kDeletionLimit files per cycle. The root is
// the fixed folder of all its file work, and below it links are neither
// files nor folders: they are never aged, entered or followed.
class CachePruner {
 public:
  static constexpr int kDeletionLimit = 50;

  CachePruner(platform::FileManager& files, const platform::Clock& clock,
              std::filesystem::path root, core::CustomLogger logger);

  void pruneCache(int olderThanDays) const;
  // Deletes one file and tidies the folder that held it.
  void deleteInstallMedia(const std::filesystem::path& file) const;
  // Removes the empty folders under `directory`, then `directory` itself if
  // it is empty now; true when it did.
  platform::FileResult<bool> pruneEmptyDirectories(const std::filesystem::path& directory) const;
  // Whether any component of the path ends in ".app".
  static bool isInsideAppBundle(const std::filesystem::path& path);

 private:
  platform::FileManager& files_;
  const platform::Clock& clock_;
  std::filesystem::path root_;
  core::CustomLogger logger_;
};

}  // namespace velmo::agent::maintenance
