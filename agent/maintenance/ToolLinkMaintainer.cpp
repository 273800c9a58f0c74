#include "agent/maintenance/ToolLinkMaintainer.h"

#include <variant>

#include "mdm/PreferenceConversions.h"

namespace velmo::agent::maintenance {

ToolLinkMaintainer::ToolLinkMaintainer(platform::FileManager& files,
                                       const platform::UserDefaults& userDefaults,
                                       std::filesystem::path link,
                                       std::filesystem::path destination, core::CustomLogger logger)
    : files_(files),
      userDefaults_(userDefaults),
      link_(std::move(link)),
      destination_(std::move(destination)),
      logger_(std::move(logger)) {}

void ToolLinkMaintainer::maintainToolLink() const {
  // The exists test follows the link, so a dangling link counts as missing.
  const bool exists = files_.fileExists(link_);
  const bool remove = mdm::PreferenceConversions::boolForKey(userDefaults_, "RemoveVelmoSymlink");
  if (!exists && !remove) {
    logger_.info("The velmo symlink is missing; creating now.");
    if (const auto result = files_.createSymbolicLink(link_, destination_);
        const auto* error = result.error()) {
      logger_.error("Failed to create velmo symlink, detailed error: " + error->description + ".");
    }
  } else if (exists && remove) {
    removeLinkIfOurs();
  }
}

void ToolLinkMaintainer::removeLinkIfOurs() const {
  auto failed = [&](const platform::FileError& error) {
    logger_.error("Failed to remove velmo symlink, detailed error: " + error.description + ".");
  };
  const auto destination = files_.destinationOfSymbolicLink(link_);
  if (const auto* error = destination.error()) return failed(*error);
  // Exact text: the same file reached through another form of the path isn't ours.
  if (destination.value() != destination_.string()) {
    logger_.debug(
        "Current velmo symlink does not point to Marvenith's velmo command line tool; skipping "
        "removal.");
    return;
  }
  logger_.info("Configured to remove the velmo symlink; removing now.");
  // The link's folder is the fixed part: a link on the way there that only
  // root controls, as /usr/local may be, is followed; the link itself goes.
  if (const auto removed = files_.removeItem(link_, link_.parent_path()); removed.error()) {
    failed(*removed.error());
  }
}

}  // namespace velmo::agent::maintenance
