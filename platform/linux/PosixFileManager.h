#pragma once

#include "platform/FileManager.h"

namespace velmo::platform::linux {

class PosixFileManager final : public FileManager {
 public:
  bool fileExists(const std::filesystem::path& path) const override;
};

}  // namespace velmo::platform::linux
