#pragma once

#include "platform/FileManager.h"

namespace velmo::platform::linux {

class PosixFileManager final : public FileManager {
 public:
  bool fileExists(const std::filesystem::path& path) const override;
  std::optional<std::string> readFile(const std::filesystem::path& path) const override;
  // A temporary file in the same folder, flushed to disk, then renamed over
  // the old one.
  std::optional<std::string> writeFileAtomically(const std::filesystem::path& path,
                                                 const std::string& contents) override;
};

}  // namespace velmo::platform::linux
