#pragma once

#include <filesystem>

namespace velmo::platform {

class FileManager {
 public:
  virtual ~FileManager() = default;
  // True for anything at the path, as the platform's file-exists check is.
  virtual bool fileExists(const std::filesystem::path& path) const = 0;
};

}  // namespace velmo::platform
