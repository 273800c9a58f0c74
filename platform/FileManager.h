#pragma once

#include <filesystem>
#include <optional>
#include <string>

namespace velmo::platform {

// Why a file operation failed, as the platform's error object tells it.
struct FileError {
  std::string description;
  std::string domain;
  int code = 0;
};

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

  // The folder and every missing folder above it; an existing folder is fine.
  virtual std::optional<FileError> createDirectories(const std::filesystem::path& path) = 0;
  virtual std::optional<FileError> removeItem(const std::filesystem::path& path) = 0;
  // A plain write in place, creating or truncating the file: not atomic.
  virtual std::optional<FileError> writeFile(const std::filesystem::path& path,
                                             const std::string& contents) = 0;
  // Puts `replacement` in the place of `original` in one step.
  virtual std::optional<FileError> replaceItem(const std::filesystem::path& original,
                                               const std::filesystem::path& replacement) = 0;
  // Fails when something is at `destination` already.
  virtual std::optional<FileError> moveItem(const std::filesystem::path& source,
                                            const std::filesystem::path& destination) = 0;
};

}  // namespace velmo::platform
