#pragma once

#include <cstdint>
#include <filesystem>
#include <optional>
#include <string>
#include <string_view>
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

// The size of a file and its last bytes.
struct FileTail {
  std::uint64_t size = 0;
  FileBytes bytes;
};

// The operations that walk a path take the fixed folder it lies in: a folder
// of the system's own layout that a job works in, such as the log's folder or
// the tool cache, and `path` is that folder or lies below it. On the way to
// the fixed folder a symbolic link is followed only when root alone can have
// made it: the link belongs to root, and so does the folder holding it, which
// neither group nor others may write. Below the fixed folder no link is
// followed at all, so whoever can write there can't steer the agent
// elsewhere. A refused link fails the operation.
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
  // With `skipHiddenFiles`, names starting with a dot are left out.
  virtual FileResult<std::vector<DirectoryEntry>> contentsOfDirectory(
      const std::filesystem::path& path, const std::filesystem::path& fixedFolder,
      bool skipHiddenFiles) const = 0;
  // The file's size and its last `maxBytes` bytes (all of it when smaller),
  // read into memory: a file shortened meanwhile is a failure, not a fault.
  virtual FileResult<FileTail> readFileTail(const std::filesystem::path& path,
                                            const std::filesystem::path& fixedFolder,
                                            std::uint64_t maxBytes) const = 0;
  // What the link at `path` points to, as written; fails for anything but a link.
  virtual FileResult<std::string> destinationOfSymbolicLink(
      const std::filesystem::path& path) const = 0;
  // A link at `path` pointing to `destination`; fails when `path` is taken.
  virtual std::optional<FileError> createSymbolicLink(const std::filesystem::path& path,
                                                      const std::filesystem::path& destination) = 0;

  // The folder and every missing folder above it; an existing folder is fine.
  virtual std::optional<FileError> createDirectories(const std::filesystem::path& path) = 0;
  // Removes the item below `fixedFolder`, a folder with all it holds. A
  // symbolic link is removed as a link and never followed inside a folder,
  // so a removal can't reach outside the item.
  virtual std::optional<FileError> removeItem(const std::filesystem::path& path,
                                              const std::filesystem::path& fixedFolder) = 0;
  // A plain write in place, creating or truncating the file: not atomic.
  virtual std::optional<FileError> writeFile(const std::filesystem::path& path,
                                             std::string_view contents) = 0;
  // Puts `replacement` in the place of `original` in one step.
  virtual std::optional<FileError> replaceItem(const std::filesystem::path& original,
                                               const std::filesystem::path& replacement) = 0;
  // Fails when something is at `destination` already.
  virtual std::optional<FileError> moveItem(const std::filesystem::path& source,
                                            const std::filesystem::path& destination) = 0;
};

}  // namespace velmo::platform
