#pragma once

#include <filesystem>

#include "core/logging/CustomLogger.h"
#include "platform/FileManager.h"
#include "platform/UserDefaults.h"

namespace velmo::agent::maintenance {

// Keeps the convenience link to the tool in the shell's path, or takes it
// away when the defaults key RemoveVelmoSymlink says so. A link that points
// anywhere else is left alone.
class ToolLinkMaintainer {
 public:
  ToolLinkMaintainer(platform::FileManager& files, const platform::UserDefaults& userDefaults,
                     std::filesystem::path link, std::filesystem::path destination,
                     core::CustomLogger logger);

  void maintainToolLink() const;

 private:
  void removeLinkIfOurs() const;

  platform::FileManager& files_;
  const platform::UserDefaults& userDefaults_;
  std::filesystem::path link_;
  std::filesystem::path destination_;
  core::CustomLogger logger_;
};

}  // namespace velmo::agent::maintenance
