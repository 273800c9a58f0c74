#pragma once

#include <cstddef>
#include <filesystem>
#include <string_view>

#include "core/logging/CustomLogger.h"
#include "platform/FileManager.h"

namespace velmo::core {

// A state file that can't be parsed counts as empty and is overwritten by the
// next save; before that, its bytes are kept once beside it as
// "<name>.damaged" for the administrator, with a warning naming that path.
// Keeping the same bytes again does nothing, and says nothing. Used on one
// executor at a time.
class DamagedFileKeeper {
 public:
  DamagedFileKeeper(platform::FileManager& files, CustomLogger logger);

  // `bytes` are what `file` held; `what` names the file in the warning.
  void keep(const std::filesystem::path& file, std::string_view bytes, std::string_view what);

  static std::filesystem::path damagedPath(const std::filesystem::path& file) {
    return file.string() + ".damaged";
  }

 private:
  platform::FileManager& files_;
  CustomLogger logger_;
  // Of the bytes last warned about, so a failing copy is not warned about at every read.
  std::size_t lastWarned_ = 0;
};

}  // namespace velmo::core
