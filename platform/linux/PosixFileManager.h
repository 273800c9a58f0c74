#pragma once

#include "platform/FileManager.h"

namespace velmo::platform::linux {

class PosixFileManager : public FileManager {
 public:
  bool fileExists(const std::filesystem::path& path) const override;
  std::optional<std::string> readFile(const std::filesystem::path& path) const override;
  // A temporary file in the same folder, flushed to disk, then renamed over
  // the old one.
  std::optional<std::string> writeFileAtomically(const std::filesystem::path& path,
                                                 const std::string& contents) override;
  // Entries are described by statx without following links; the creation
  // date is the birth time where the file system records one.
  FileResult<std::vector<DirectoryEntry>> contentsOfDirectory(
      const std::filesystem::path& path, const std::filesystem::path& fixedFolder,
      bool skipHiddenFiles) const override;
  // Sized with fstat and read with pread on one descriptor, never mapped: a
  // mapping of the file faults (SIGBUS) when the file is cut under it.
  FileResult<FileTail> readFileTail(const std::filesystem::path& path,
                                    const std::filesystem::path& fixedFolder,
                                    std::uint64_t maxBytes) const override;
  FileResult<std::string> destinationOfSymbolicLink(
      const std::filesystem::path& path) const override;
  std::optional<FileError> createSymbolicLink(const std::filesystem::path& path,
                                              const std::filesystem::path& destination) override;
  std::optional<FileError> createDirectories(const std::filesystem::path& path) override;
  // Works from a descriptor of each folder it enters below the fixed folder,
  // opened without following links, so a link swapped in during the removal
  // is only unlinked.
  std::optional<FileError> removeItem(const std::filesystem::path& path,
                                      const std::filesystem::path& fixedFolder) override;
  std::optional<FileError> writeFile(const std::filesystem::path& path,
                                     std::string_view contents) override;
  // rename(2): atomic within one file system.
  std::optional<FileError> replaceItem(const std::filesystem::path& original,
                                       const std::filesystem::path& replacement) override;
  std::optional<FileError> moveItem(const std::filesystem::path& source,
                                    const std::filesystem::path& destination) override;
};

}  // namespace velmo::platform::linux
