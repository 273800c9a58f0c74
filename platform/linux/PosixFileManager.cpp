#include "platform/linux/PosixFileManager.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <stdio.h>

#include <cerrno>
#include <cstring>
#include <fstream>
#include <sstream>
#include <system_error>

namespace velmo::platform::linux {
namespace {

std::string failure(const char* what, const std::filesystem::path& path, int error) {
  return std::string(what) + " " + path.string() + ": " + std::strerror(error);
}

FileError posixError(const char* what, const std::filesystem::path& path, int error) {
  return {failure(what, path, error), "NSPOSIXErrorDomain", error};
}

}  // namespace

bool PosixFileManager::fileExists(const std::filesystem::path& path) const {
  std::error_code error;
  return std::filesystem::exists(path, error);
}

std::optional<std::string> PosixFileManager::readFile(const std::filesystem::path& path) const {
  std::error_code error;
  if (!std::filesystem::is_regular_file(path, error)) return std::nullopt;
  std::ifstream stream(path, std::ios::binary);
  if (!stream) return std::nullopt;
  std::ostringstream contents;
  contents << stream.rdbuf();
  if (stream.bad()) return std::nullopt;
  return contents.str();
}

std::optional<std::string> PosixFileManager::writeFileAtomically(const std::filesystem::path& path,
                                                                 const std::string& contents) {
  std::string temporary = path.string() + ".XXXXXX";
  const int fd = ::mkostemp(temporary.data(), O_CLOEXEC);
  if (fd < 0) return failure("Cannot create a temporary file beside", path, errno);
  auto abandon = [&](const char* what) {
    const int error = errno;
    ::close(fd);
    ::unlink(temporary.c_str());
    return failure(what, temporary, error);
  };
  for (std::size_t written = 0; written < contents.size();) {
    const ssize_t result = ::write(fd, contents.data() + written, contents.size() - written);
    if (result < 0) {
      if (errno == EINTR) continue;
      return abandon("Cannot write");
    }
    written += static_cast<std::size_t>(result);
  }
  if (::fchmod(fd, 0644) != 0) return abandon("Cannot set the mode of");
  if (::fsync(fd) != 0) return abandon("Cannot flush");
  if (::close(fd) != 0) {
    const int error = errno;
    ::unlink(temporary.c_str());
    return failure("Cannot close", temporary, error);
  }
  if (::rename(temporary.c_str(), path.c_str()) != 0) {
    const int error = errno;
    ::unlink(temporary.c_str());
    return failure("Cannot replace", path, error);
  }
  return std::nullopt;
}

std::optional<FileError> PosixFileManager::createDirectories(const std::filesystem::path& path) {
  std::error_code error;
  std::filesystem::create_directories(path, error);
  if (error) return posixError("Cannot create the folder", path, error.value());
  return std::nullopt;
}

std::optional<FileError> PosixFileManager::removeItem(const std::filesystem::path& path) {
  std::error_code error;
  // A link is removed as a link; a folder with all it holds.
  std::filesystem::remove_all(path, error);
  if (error) return posixError("Cannot remove", path, error.value());
  return std::nullopt;
}

std::optional<FileError> PosixFileManager::writeFile(const std::filesystem::path& path,
                                                     const std::string& contents) {
  const int fd = ::open(path.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC | O_NOFOLLOW, 0644);
  if (fd < 0) return posixError("Cannot write", path, errno);
  for (std::size_t written = 0; written < contents.size();) {
    const ssize_t result = ::write(fd, contents.data() + written, contents.size() - written);
    if (result < 0) {
      if (errno == EINTR) continue;
      const int error = errno;
      ::close(fd);
      return posixError("Cannot write", path, error);
    }
    written += static_cast<std::size_t>(result);
  }
  if (::close(fd) != 0) return posixError("Cannot close", path, errno);
  return std::nullopt;
}

std::optional<FileError> PosixFileManager::replaceItem(const std::filesystem::path& original,
                                                       const std::filesystem::path& replacement) {
  if (::rename(replacement.c_str(), original.c_str()) != 0) {
    return posixError("Cannot replace", original, errno);
  }
  return std::nullopt;
}

std::optional<FileError> PosixFileManager::moveItem(const std::filesystem::path& source,
                                                    const std::filesystem::path& destination) {
  // renameat2 with RENAME_NOREPLACE refuses an existing destination in the same step.
  if (::renameat2(AT_FDCWD, source.c_str(), AT_FDCWD, destination.c_str(), RENAME_NOREPLACE) != 0) {
    return posixError("Cannot move", source, errno);
  }
  return std::nullopt;
}

}  // namespace velmo::platform::linux
