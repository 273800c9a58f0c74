#pragma once

#include <filesystem>
#include <optional>
#include <string>
#include <vector>

#include "core/files/DamagedFileKeeper.h"
#include "core/items/UpdateItem.h"
#include "core/logging/CustomLogger.h"
#include "platform/FileManager.h"

namespace velmo::agent::items {

// The update state file as the file strand reads and writes it: what it holds
// goes back to the controller on the main executor, never the other way.
class UpdateStateFile {
 public:
  explicit UpdateStateFile(platform::FileManager& files) : files_(files) {}

  // The items the file holds; none when it is missing or damaged (a damaged
  // file is kept aside once).
  std::optional<std::vector<core::UpdateItem>> load(const std::filesystem::path& url);
  // The error line on failure.
  std::optional<std::string> write(const std::vector<core::UpdateItem>& items,
                                   const std::filesystem::path& url);

 private:
  platform::FileManager& files_;
  core::CustomLogger logger_{"UIController+Load+Save"};
  core::DamagedFileKeeper damaged_{files_, logger_};
};

}  // namespace velmo::agent::items
