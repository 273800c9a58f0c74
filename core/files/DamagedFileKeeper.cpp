#include "core/files/DamagedFileKeeper.h"

#include <functional>
#include <string>

namespace velmo::core {

DamagedFileKeeper::DamagedFileKeeper(platform::FileManager& files, CustomLogger logger)
    : files_(files), logger_(std::move(logger)) {}

void DamagedFileKeeper::keep(const std::filesystem::path& file, std::string_view bytes,
                             std::string_view what) {
  const auto copy = damagedPath(file);
  const std::size_t hash = std::hash<std::string_view>{}(bytes);
  if (hash == lastWarned_) return;
  if (const auto kept = files_.readFile(copy); kept.ok() && kept.value() == bytes) return;
  lastWarned_ = hash;
  const auto written = files_.writeFileAtomically(copy, bytes);
  if (const auto* error = written.error()) {
    logger_.warning(
        "The " + std::string(what) + " " + file.string() +
        " can't be parsed and counts as empty; its bytes could not be kept: " + error->description);
    return;
  }
  logger_.warning("The " + std::string(what) + " " + file.string() +
                  " can't be parsed and counts as empty; its bytes are kept at " + copy.string() +
                  ".");
}

}  // namespace velmo::core
