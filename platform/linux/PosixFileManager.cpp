#include "platform/linux/PosixFileManager.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

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

}  // namespace velmo::platform::linux
