#include "agent/maintenance/CachePruner.h"

#include <vector>

#include "core/time/TimeInterval.h"

namespace velmo::agent::maintenance {

CachePruner::CachePruner(platform::FileManager& files, const platform::Clock& clock,
                         std::filesystem::path root, core::CustomLogger logger)
    : files_(files), clock_(clock), root_(std::move(root)), logger_(std::move(logger)) {}

void CachePruner::pruneCache(int olderThanDays) const {
  const platform::TimePoint now = clock_.now();
  const auto limit = std::chrono::seconds(static_cast<std::int64_t>(olderThanDays) * 24 * 60 * 60);
  if (!files_.fileExists(root_)) {
    logger_.debug("Cache directory does not exist: " + root_.string());
    return;
  }
  // The only listing that counts hidden files; if it fails, the walk finds out.
  const auto everything = files_.contentsOfDirectory(root_, root_, false);
  if (everything.ok() && everything.value().empty()) {
    logger_.debug("Cache directory is empty; skipping prune.");
    return;
  }
  auto failed = [&](const platform::FileError& error) {
    logger_.error("Error while pruning cache " + root_.string() + ": " + error.description);
  };
  const auto folders = files_.contentsOfDirectory(root_, root_, true);
  if (const auto* error = folders.error()) return failed(*error);
  int deletions = 0;
  for (const auto& folder : folders.value()) {
    if (!folder.isDirectory()) continue;
    const auto items = files_.contentsOfDirectory(folder.path, root_, true);
    if (const auto* error = items.error()) return failed(*error);
    for (const auto& item : items.value()) {
      if (!item.isRegularFile() || !item.creationDate) continue;
      const auto age = now - *item.creationDate;
      if (age <= limit) continue;
      logger_.debug("File age " +
                    core::durationDescription(std::chrono::duration_cast<core::TimeInterval>(age)) +
                    ": " + item.path.filename().string());
      deleteInstallMedia(item.path);
      // A failed deletion uses up its place too.
      if (++deletions >= kDeletionLimit) {
        logger_.info("Reached deletion limit (" + std::to_string(kDeletionLimit) +
                     ") for this prune cycle.");
        return;
      }
    }
  }
}

void CachePruner::deleteInstallMedia(const std::filesystem::path& file) const {
  if (const auto result = files_.removeItem(file, root_); const auto* error = result.error()) {
    logger_.error("Error while deleting file or directory: " + error->description);
    return;
  }
  logger_.info("Deleted install media: " + file.filename().string());
  const auto folder = file.parent_path();
  const auto pruned = pruneEmptyDirectories(folder);
  if (const auto* error = pruned.error()) {
    logger_.error("Error while pruning empty directories under " + folder.string() + ": " +
                  error->description);
  }
}

platform::FileResult<bool> CachePruner::pruneEmptyDirectories(
    const std::filesystem::path& directory) const {
  if (isInsideAppBundle(directory)) {
    logger_.debug("Skipping pruning inside app bundle: " + directory.string());
    return false;
  }
  const auto listing = files_.contentsOfDirectory(directory, root_, true);
  if (const auto* error = listing.error()) return *error;
  for (const auto& entry : listing.value()) {
    if (!entry.isDirectory()) continue;
    if (entry.path.extension() == ".app") {
      logger_.debug("Skipping app bundle during cache prune: " + entry.path.string());
      continue;
    }
    const auto pruned = pruneEmptyDirectories(entry.path);
    if (const auto* error = pruned.error()) return *error;
  }
  const auto remaining = files_.contentsOfDirectory(directory, root_, true);
  if (const auto* error = remaining.error()) return *error;
  if (!remaining.value().empty()) return false;
  if (directory.lexically_normal() == root_.lexically_normal()) return false;
  // Hidden files don't keep a folder: they go with it.
  if (const auto result = files_.removeItem(directory, root_); const auto* error = result.error())
    return *error;
  logger_.info("Deleted empty directory: " + directory.string());
  return true;
}

bool CachePruner::isInsideAppBundle(const std::filesystem::path& path) {
  for (const auto& component : path) {
    if (component.string().ends_with(".app")) return true;
  }
  return false;
}

}  // namespace velmo::agent::maintenance
