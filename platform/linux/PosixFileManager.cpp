#include "platform/linux/PosixFileManager.h"

#include <system_error>

namespace velmo::platform::linux {

bool PosixFileManager::fileExists(const std::filesystem::path& path) const {
  std::error_code error;
  return std::filesystem::exists(path, error);
}

}  // namespace velmo::platform::linux
