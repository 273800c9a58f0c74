#pragma once

#include <cstdint>
#include <filesystem>
#include <optional>
#include <string>
#include <string_view>
#include <type_traits>
#include <utility>
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

// What every fallible file call gives: its value (nothing, for calls that
// only act), or why it failed. It can't be dropped unread: the build turns an
// ignored one into an error.
template <typename T = std::monostate>
class [[nodiscard]] FileResult {
 public:
  FileResult() requires std::is_same_v<T, std::monostate>
  = default;
  FileResult(T value) : storage_(std::move(value)) {}
  FileResult(FileError error) : storage_(std::move(error)) {}

  bool ok() const { return storage_.index() == 0; }
  // Why the call failed; null when it succeeded.
  const FileError* error() const { return std::get_if<FileError>(&storage_); }
  // Only when ok().
  const T& value() const { return std::get<T>(storage_); }
  T& value() { return std::get<T>(storage_); }
  T valueOr(T fallback) && { return ok() ? std::move(value()) : std::move(fallback); }

 private:
  std::variant<T, FileError> storage_;
};

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
  // The whole content. A missing file fails with the code ENOENT.
  virtual FileResult<std::string> readFile(const std::filesystem::path& path) const = 0;
  // The whole content when it is at most `maxBytes` long. A longer file fails
  // with the code EFBIG, having read no more than `maxBytes` + 1 bytes of it:
  // for files that someone else may have made huge.
  virtual FileResult<std::string> readFile(const std::filesystem::path& path,
                                           std::uint64_t maxBytes) const = 0;
  // The one durable write of a state file, in these steps: create the
  // temporary file beside it (its name and ".tmp"), write, flush it to disk,
  // rename it over the file, flush the folder. A reader sees the old content
  // or the new, never a part, and a power cut keeps one of the two. A failure
  // before the rename leaves the old file whole and removes the temporary; a
  // failed flush of the folder comes after the rename, so the new content is
  // in place but not yet known to be on disk, and the caller writes it again.
  virtual FileResult<> writeFileAtomically(const std::filesystem::path& path,
                                           std::string_view contents) = 0;

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
  virtual FileResult<> createSymbolicLink(const std::filesystem::path& path,
                                          const std::filesystem::path& destination) = 0;

  // The folder and every missing folder above it; an existing folder is fine.
  virtual FileResult<> createDirectories(const std::filesystem::path& path) = 0;
  // Removes the item below `fixedFolder`, a folder with all it holds. A
  // symbolic link is removed as a link and never followed inside a folder,
  // so a removal can't reach outside the item.
  virtual FileResult<> removeItem(const std::filesystem::path& path,
                                  const std::filesystem::path& fixedFolder) = 0;
  // A plain write in place, creating or truncating the file: not atomic. Only
  // for the log, which others append to through a descriptor of their own.
  virtual FileResult<> writeFile(const std::filesystem::path& path, std::string_view contents) = 0;
};

}  // namespace velmo::platform
