#pragma once

#include <filesystem>
#include <optional>
#include <string>
#include <variant>
#include <vector>

#include "platform/Clock.h"
#include "platform/FileBytes.h"

namespace velmo::platform {

// Why a file operation failed, as the platform's error object tells it.
struct FileError {
  std::string description;
  std::string domain;
  int code = 0;
};

// A value, or why it couldn't be had.
template <typename T>
using FileResult = std::variant<T, FileError>;

// One entry of a folder, described as it is itself: a symbolic link is a
// link, whatever it points to.
struct DirectoryEntry {
  enum class Type { regular, directory, symbolicLink, other };

  std::filesystem::path path;
  Type type = Type::other;
  // None where the file system keeps no creation date.
  std::optional<TimePoint> creationDate;

  bool isDirectory() const { return type == Type::directory; }
  bool isRegularFile() const { return type == Type::regular; }
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

  // The entries of a folder, without going into subfolders, ordered by name.
  // With `skipHiddenFiles`, names starting with a dot are left out. Fails when
  // any component of the path is a symbolic link.
  virtual FileResult<std::vector<DirectoryEntry>> contentsOfDirectory(
      const std::filesystem::path& path, bool skipHiddenFiles) const = 0;
  // The whole file, mapped rather than copied where the platform can do so
  // safely. Fails when any component of the path is a symbolic link.
  virtual FileResult<FileBytes> contentsMappedIfSafe(const std::filesystem::path& path) const = 0;
  // What the link at `path` points to, as written; fails for anything but a link.
  virtual FileResult<std::string> destinationOfSymbolicLink(
      const std::filesystem::path& path) const = 0;
  // A link at `path` pointing to `destination`; fails when `path` is taken.
  virtual std::optional<FileError> createSymbolicLink(const std::filesystem::path& path,
                                                      const std::filesystem::path& destination) = 0;

  // The folder and every missing folder above it; an existing folder is fine.
  virtual std::optional<FileError> createDirectories(const std::filesystem::path& path) = 0;
  // Removes the item, a folder with all it holds. A symbolic link is removed
  // as a link and never followed, neither on the way to the item nor inside
  // a folder, so a removal can't reach outside the item.
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
