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
  std::optional<FileError> createDirectories(const std::filesystem::path& path) override;
  std::optional<FileError> removeItem(const std::filesystem::path& path) override;
  std::optional<FileError> writeFile(const std::filesystem::path& path,
                                     const std::string& contents) override;
  // rename(2): atomic within one file system.
  std::optional<FileError> replaceItem(const std::filesystem::path& original,
                                       const std::filesystem::path& replacement) override;
  std::optional<FileError> moveItem(const std::filesystem::path& source,
                                    const std::filesystem::path& destination) override;
};

}  // namespace velmo::platform::linux
