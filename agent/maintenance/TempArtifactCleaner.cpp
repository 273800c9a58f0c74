#include "agent/maintenance/TempArtifactCleaner.h"

#include <variant>

#include "agent/maintenance/TempArtifactName.h"

namespace velmo::agent::maintenance {

TempArtifactCleaner::TempArtifactCleaner(platform::FileManager& files, const platform::Clock& clock,
                                         std::vector<std::filesystem::path> directories,
                                         core::CustomLogger logger)
    : files_(files),
      clock_(clock),
      directories_(std::move(directories)),
      logger_(std::move(logger)) {}

void TempArtifactCleaner::cleanUpTempArtifacts(int olderThanDays) const {
  for (const auto& directory : directories_) cleanUp(directory, olderThanDays);
}

void TempArtifactCleaner::cleanUp(const std::filesystem::path& directory, int olderThanDays) const {
  const std::string path = directory.string();
  if (!files_.fileExists(directory)) {
    logger_.debug("Temp cleanup skipped; directory missing: " + path);
    return;
  }
  // Hidden entries too: every artifact is hidden.
  const auto listing = files_.contentsOfDirectory(directory, directory, false);
  if (!listing.ok()) {
    logger_.warning("Couldn’t scan for temp artifacts in " + path +
                    ". This won’t stop maintenance.");
    return;
  }
  const core::TimeInterval cutoff =
      std::chrono::duration_cast<core::TimeInterval>(clock_.now().time_since_epoch()) -
      core::TimeInterval(olderThanDays * 86'400.0);
  std::vector<std::filesystem::path> artifacts;
  for (const auto& entry : listing.value()) {
    const auto stamp = TempArtifactName::timestamp(entry.path.filename().string());
    if (stamp && *stamp <= cutoff) artifacts.push_back(entry.path);
  }
  if (artifacts.empty()) {
    logger_.debug("No temp artifacts found in " + path + ".");
    return;
  }
  int removed = 0;
  for (const auto& artifact : artifacts) {
    if (removed >= kRemovalLimit) {
      logger_.info("Reached temp cleanup limit (" + std::to_string(kRemovalLimit) + ") in " + path +
                   ".");
      return;
    }
    // A link is removed as a link, a bundle with all it holds.
    const std::string name = artifact.filename().string();
    if (!files_.removeItem(artifact, directory).ok()) {
      logger_.warning("Couldn’t remove temp artifact: " + name + ". You can delete it later.");
      continue;
    }
    logger_.debug("Cleaned up temp artifact: " + name);
    ++removed;
  }
}

}  // namespace velmo::agent::maintenance
