#pragma once

#include <filesystem>
#include <optional>
#include <string>

namespace velmo::platform {

class FileManager {
 public:
  virtual ~FileManager() = default;
  // True for anything at the path, as the platform's file-exists check is.
  virtual bool fileExists(const std::filesystem::path& path) const = 0;
  // The whole content, or nothing when the file can't be read.
  virtual std::optional<std::string> readFile(const std::filesystem::path& path) const = 0;
  // Replaces the file in one step: a reader sees the old content or the new,
  // never a part. Gives the reason on failure, when the old file is untouched.
  virtual std::optional<std::string> writeFileAtomically(const std::filesystem::path& path,
                                                         const std::string& contents) = 0;
};

}  // namespace velmo::platform
