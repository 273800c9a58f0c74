#include "backends/linux/PosixFileManager.h"

#include <dirent.h>
#include <fcntl.h>
#include <sys/mman.h>
#include <sys/stat.h>
#include <unistd.h>

#include <stdio.h>

#include <algorithm>
#include <cerrno>
#include <climits>
#include <cstdint>
#include <cstring>
#include <deque>
#include <limits>
#include <memory>
#include <system_error>
#include <utility>
#include <vector>

#include "backends/linux/Descriptor.h"

namespace velmo::platform::linux {
namespace {

FileError posixError(const char* what, const std::filesystem::path& path, int error) {
  return {std::string(what) + " " + path.string() + ": " + std::strerror(error),
          "NSPOSIXErrorDomain", error};
}

// The kernel's own bound on links in one lookup: a loop of trusted links
// fails here instead of going round forever.
constexpr int kLinkLimit = 40;

Descriptor openFolder(int at, const char* name) {
  return Descriptor(::openat(at, name, O_PATH | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC));
}

Descriptor openTop(const std::filesystem::path& path) {
  return Descriptor(::open(path.is_absolute() ? "/" : ".", O_PATH | O_DIRECTORY | O_CLOEXEC));
}

std::deque<std::string> componentsOf(const std::filesystem::path& path) {
  std::deque<std::string> names;
  for (const auto& component : path.relative_path()) {
    if (!component.empty() && component != ".") names.push_back(component.string());
  }
  return names;
}

// Whether the link described by `link`, found in the folder `holder`, may be
// followed: root made it and nobody else can replace it. A link's own mode
// means nothing on Linux (always 0777, and a link is never written, only
// replaced through its folder), so the folder's mode speaks for both.
bool isTrustedLink(int holder, const struct stat& link) {
  struct stat folder {};
  if (::fstat(holder, &folder) != 0) return false;
  return link.st_uid == 0 && folder.st_uid == 0 && (folder.st_mode & (S_IWGRP | S_IWOTH)) == 0;
}

// What `name` in `folder` is, for a failed open: a link refused reads as
// ELOOP, as O_NOFOLLOW reports it, rather than "not a directory".
int refusal(int folder, const char* name, int error) {
  struct stat status {};
  if (::fstatat(folder, name, &status, AT_SYMLINK_NOFOLLOW) == 0 && S_ISLNK(status.st_mode)) {
    return ELOOP;
  }
  return error;
}

// Opens the fixed folder `path` (O_PATH), component by component, following
// only the links isTrustedLink allows and each of those through the same
// walk. On failure the descriptor is invalid and errno tells why.
Descriptor openFixedFolder(const std::filesystem::path& path) {
  std::deque<std::string> pending = componentsOf(path);
  Descriptor current = openTop(path);
  int links = 0;
  while (current.valid() && !pending.empty()) {
    const std::string name = std::move(pending.front());
    pending.pop_front();
    Descriptor next = openFolder(current.get(), name.c_str());
    if (next.valid()) {
      current = std::move(next);
      continue;
    }
    const int error = errno;
    struct stat link {};
    if (::fstatat(current.get(), name.c_str(), &link, AT_SYMLINK_NOFOLLOW) != 0 ||
        !S_ISLNK(link.st_mode)) {
      errno = error;
      return Descriptor();
    }
    if (!isTrustedLink(current.get(), link) || ++links > kLinkLimit) {
      errno = ELOOP;
      return Descriptor();
    }
    std::string destination(PATH_MAX, '\0');
    const ssize_t length =
        ::readlinkat(current.get(), name.c_str(), destination.data(), destination.size());
    if (length < 0) return Descriptor();
    destination.resize(static_cast<std::size_t>(length));
    // A relative destination goes on from the folder holding the link.
    const std::filesystem::path target(destination);
    if (target.is_absolute()) current = openTop(target);
    const auto names = componentsOf(target);
    pending.insert(pending.begin(), names.begin(), names.end());
  }
  return current;
}

// Opens `path` in the fixed folder `folder`: the folder as openFixedFolder
// does, then each component below it with O_NOFOLLOW, the last with `flags`.
// A path outside the folder is EINVAL. On failure the descriptor is invalid
// and errno tells why.
Descriptor openInFixedFolder(const std::filesystem::path& path, const std::filesystem::path& folder,
                             int flags) {
  const auto relative = path.lexically_normal().lexically_relative(folder.lexically_normal());
  if (relative.empty() || *relative.begin() == "..") {
    errno = EINVAL;
    return Descriptor();
  }
  const std::deque<std::string> below = componentsOf(relative);
  Descriptor current = openFixedFolder(folder);
  if (!current.valid()) return current;
  if (below.empty()) return Descriptor(::openat(current.get(), ".", flags | O_CLOEXEC));
  for (std::size_t i = 0; i + 1 < below.size(); ++i) {
    Descriptor next = openFolder(current.get(), below[i].c_str());
    if (!next.valid()) {
      errno = refusal(current.get(), below[i].c_str(), errno);
      return next;
    }
    current = std::move(next);
  }
  Descriptor last(::openat(current.get(), below.back().c_str(), flags | O_NOFOLLOW | O_CLOEXEC));
  if (!last.valid()) errno = refusal(current.get(), below.back().c_str(), errno);
  return last;
}

bool isDotOrDotDot(const char* name) {
  return std::strcmp(name, ".") == 0 || std::strcmp(name, "..") == 0;
}

// Removes `name` in the folder `parent`: a folder after its content, found
// through descriptors; anything else, a link included, by unlinking it.
// Returns 0 or the errno of the first failure.
int removeAt(int parent, const char* name) {
  struct stat status {};
  if (::fstatat(parent, name, &status, AT_SYMLINK_NOFOLLOW) != 0) return errno;
  if (!S_ISDIR(status.st_mode)) return ::unlinkat(parent, name, 0) == 0 ? 0 : errno;
  const int fd = ::openat(parent, name, O_RDONLY | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC);
  if (fd < 0) return errno;
  DIR* directory = ::fdopendir(fd);
  if (!directory) {
    const int error = errno;
    ::close(fd);
    return error;
  }
  int error = 0;
  errno = 0;
  while (const dirent* entry = ::readdir(directory)) {
    if (isDotOrDotDot(entry->d_name)) continue;
    // Removing while reading is fine for readdir; on failure stop at once.
    if ((error = removeAt(fd, entry->d_name)) != 0) break;
    errno = 0;
  }
  if (error == 0 && errno != 0) error = errno;
  ::closedir(directory);
  if (error != 0) return error;
  return ::unlinkat(parent, name, AT_REMOVEDIR) == 0 ? 0 : errno;
}

DirectoryEntry::Type entryType(mode_t mode) {
  if (S_ISREG(mode)) return DirectoryEntry::Type::regular;
  if (S_ISDIR(mode)) return DirectoryEntry::Type::directory;
  if (S_ISLNK(mode)) return DirectoryEntry::Type::symbolicLink;
  return DirectoryEntry::Type::other;
}

// Writes all of `contents` to `fd`, going on after a signal and a short write.
bool writeAll(int fd, std::string_view contents) {
  for (std::size_t written = 0; written < contents.size();) {
    const ssize_t result = ::write(fd, contents.data() + written, contents.size() - written);
    if (result < 0 && errno == EINTR) continue;
    if (result < 0) return false;
    written += static_cast<std::size_t>(result);
  }
  return true;
}

}  // namespace

bool PosixFileManager::fileExists(const std::filesystem::path& path) const {
  std::error_code error;
  return std::filesystem::exists(path, error);
}

FileResult<std::string> PosixFileManager::readFile(const std::filesystem::path& path) const {
  return readFile(path, std::numeric_limits<std::uint64_t>::max());
}

FileResult<std::string> PosixFileManager::readFile(const std::filesystem::path& path,
                                                   std::uint64_t maxBytes) const {
  // Close-on-exec, as every descriptor of the agent: no tool inherits it. Not
  // blocking, so a FIFO put in a file's place can't hold the open; only a
  // regular file is read.
  const Descriptor fd(::open(path.c_str(), O_RDONLY | O_CLOEXEC | O_NONBLOCK));
  if (!fd.valid()) return posixError("Cannot read", path, errno);
  struct stat status {};
  if (::fstat(fd.get(), &status) != 0) return posixError("Cannot read", path, errno);
  if (!S_ISREG(status.st_mode)) return posixError("Cannot read", path, EINVAL);
  if (static_cast<std::uint64_t>(status.st_size) > maxBytes) {
    return posixError("Cannot read", path, EFBIG);
  }
  std::string contents;
  char buffer[65536];
  for (;;) {
    const ssize_t result = ::read(fd.get(), buffer, sizeof buffer);
    if (result < 0 && errno == EINTR) continue;
    if (result < 0) return posixError("Cannot read", path, errno);
    if (result == 0) break;
    contents.append(buffer, static_cast<std::size_t>(result));
    // It grew since fstat.
    if (contents.size() > maxBytes) return posixError("Cannot read", path, EFBIG);
  }
  return contents;
}

FileResult<> PosixFileManager::writeFileAtomically(const std::filesystem::path& path,
                                                   std::string_view contents) {
  const std::filesystem::path temporary = path.string() + ".tmp";
  Descriptor fd(
      ::open(temporary.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_NOFOLLOW | O_CLOEXEC, 0600));
  if (!fd.valid()) return posixError("Cannot create the temporary file", temporary, errno);
  const auto abandon = [&](const char* what) {
    const int error = errno;
    fd = Descriptor();
    ::unlink(temporary.c_str());
    return FileResult<>(posixError(what, path, error));
  };
  if (!writeAll(fd.get(), contents)) return abandon("Cannot write");
  // Readable by all, as the siblings and the console read these files as users.
  if (::fchmod(fd.get(), 0644) != 0) return abandon("Cannot set the mode of");
  if (::fsync(fd.get()) != 0) return abandon("Cannot flush");
  if (::close(fd.release()) != 0) return abandon("Cannot close");
  if (::rename(temporary.c_str(), path.c_str()) != 0) return abandon("Cannot replace");
  // The rename itself reaches the disk only with its folder.
  const Descriptor folder(::open(path.parent_path().empty() ? "." : path.parent_path().c_str(),
                                 O_RDONLY | O_DIRECTORY | O_CLOEXEC));
  if (!folder.valid() || ::fsync(folder.get()) != 0) {
    return posixError("Cannot flush the folder of", path, errno);
  }
  return {};
}

FileResult<> PosixFileManager::createDirectories(const std::filesystem::path& path) {
  std::error_code error;
  std::filesystem::create_directories(path, error);
  if (error) return posixError("Cannot create the folder", path, error.value());
  return {};
}

FileResult<> PosixFileManager::removeItem(const std::filesystem::path& path,
                                          const std::filesystem::path& fixedFolder) {
  const auto name = path.filename();
  if (name.empty() || name == "." || name == "..") return posixError("Cannot remove", path, EINVAL);
  // The folder that holds the item must lie in the fixed folder, so the fixed
  // folder itself is never removed through here.
  const auto parent = openInFixedFolder(path.parent_path(), fixedFolder, O_RDONLY | O_DIRECTORY);
  if (!parent.valid()) return posixError("Cannot remove", path, errno);
  if (const int error = removeAt(parent.get(), name.c_str())) {
    return posixError("Cannot remove", path, error);
  }
  return {};
}

FileResult<std::vector<DirectoryEntry>> PosixFileManager::contentsOfDirectory(
    const std::filesystem::path& path, const std::filesystem::path& fixedFolder,
    bool skipHiddenFiles) const {
  auto fd = openInFixedFolder(path, fixedFolder, O_RDONLY | O_DIRECTORY);
  if (!fd.valid()) return posixError("Cannot list the folder", path, errno);
  DIR* directory = ::fdopendir(fd.get());
  if (!directory) return posixError("Cannot list the folder", path, errno);
  fd.release();
  std::vector<DirectoryEntry> entries;
  int error = 0;
  errno = 0;
  while (const dirent* entry = ::readdir(directory)) {
    const char* name = entry->d_name;
    if (isDotOrDotDot(name) || (skipHiddenFiles && name[0] == '.')) {
      errno = 0;
      continue;
    }
    struct statx status {};
    if (::statx(::dirfd(directory), name, AT_SYMLINK_NOFOLLOW | AT_NO_AUTOMOUNT,
                STATX_TYPE | STATX_BTIME, &status) != 0) {
      // Gone since the listing read it, for instance: the listing is no longer true.
      error = errno;
      break;
    }
    DirectoryEntry described{path / name, entryType(status.stx_mode), std::nullopt};
    if (status.stx_mask & STATX_BTIME) {
      described.creationDate = TimePoint(std::chrono::duration_cast<TimePoint::duration>(
          std::chrono::seconds(status.stx_btime.tv_sec) +
          std::chrono::nanoseconds(status.stx_btime.tv_nsec)));
    }
    entries.push_back(std::move(described));
    errno = 0;
  }
  if (error == 0 && errno != 0) error = errno;
  ::closedir(directory);
  if (error != 0) return posixError("Cannot list the folder", path, error);
  std::sort(entries.begin(), entries.end(),
            [](const auto& a, const auto& b) { return a.path.filename() < b.path.filename(); });
  return entries;
}

FileResult<FileTail> PosixFileManager::readFileTail(const std::filesystem::path& path,
                                                    const std::filesystem::path& fixedFolder,
                                                    std::uint64_t maxBytes) const {
  const auto fd = openInFixedFolder(path, fixedFolder, O_RDONLY);
  if (!fd.valid()) return posixError("Cannot read", path, errno);
  struct stat status {};
  if (::fstat(fd.get(), &status) != 0) return posixError("Cannot read", path, errno);
  if (!S_ISREG(status.st_mode)) return posixError("Cannot read", path, EINVAL);
  const auto size = static_cast<std::uint64_t>(status.st_size);
  const auto length = static_cast<std::size_t>(std::min(size, maxBytes));
  if (length == 0) return FileTail{size, FileBytes()};
  // An anonymous buffer with all its pages in place from the start: faulting
  // them in one at a time costs more than the read itself on a virtual machine.
  void* buffer = ::mmap(nullptr, length, PROT_READ | PROT_WRITE,
                        MAP_PRIVATE | MAP_ANONYMOUS | MAP_POPULATE, -1, 0);
  if (buffer == MAP_FAILED) return posixError("Cannot read", path, errno);
  std::shared_ptr<const void> owner(
      buffer, [length](const void* address) { ::munmap(const_cast<void*>(address), length); });
  char* bytes = static_cast<char*>(buffer);
  const auto start = static_cast<off_t>(size - length);
  for (std::size_t done = 0; done < length;) {
    const ssize_t result =
        ::pread(fd.get(), bytes + done, length - done, start + static_cast<off_t>(done));
    if (result < 0 && errno == EINTR) continue;
    if (result < 0) return posixError("Cannot read", path, errno);
    // The end came early: someone shortened the file since fstat.
    if (result == 0) {
      return FileError{
          "Cannot read " + path.string() + ": the file was shortened while it was read",
          "NSPOSIXErrorDomain", EIO};
    }
    done += static_cast<std::size_t>(result);
  }
  return FileTail{size, FileBytes(std::string_view(bytes, length), std::move(owner))};
}

FileResult<std::string> PosixFileManager::destinationOfSymbolicLink(
    const std::filesystem::path& path) const {
  std::string destination(PATH_MAX, '\0');
  const ssize_t length = ::readlink(path.c_str(), destination.data(), destination.size());
  if (length < 0) return posixError("Cannot read the link", path, errno);
  destination.resize(static_cast<std::size_t>(length));
  return destination;
}

FileResult<> PosixFileManager::createSymbolicLink(const std::filesystem::path& path,
                                                  const std::filesystem::path& destination) {
  if (::symlink(destination.c_str(), path.c_str()) != 0) {
    return posixError("Cannot create the link", path, errno);
  }
  return {};
}

FileResult<> PosixFileManager::writeFile(const std::filesystem::path& path,
                                         std::string_view contents) {
  Descriptor fd(::open(path.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC | O_NOFOLLOW, 0644));
  if (!fd.valid()) return posixError("Cannot write", path, errno);
  if (!writeAll(fd.get(), contents)) return posixError("Cannot write", path, errno);
  if (::close(fd.release()) != 0) return posixError("Cannot close", path, errno);
  return {};
}

}  // namespace velmo::platform::linux
