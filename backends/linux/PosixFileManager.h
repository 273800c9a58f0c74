#pragma once

#include "platform/FileManager.h"

namespace velmo::platform::linux {

class PosixFileManager : public FileManager {
 public:
  bool fileExists(const std::filesystem::path& path) const override;
  FileResult<std::string> readFile(const std::filesystem::path& path) const override;
  FileResult<std::string> readFile(const std::filesystem::path& path,
                                   std::uint64_t maxBytes) const override;
  // The temporary is opened without following a link and truncated, so one
  // left by a process killed mid-write is simply reused.
  FileResult<> writeFileAtomically(const std::filesystem::path& path,
                                   std::string_view contents) override;
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
  FileResult<> createSymbolicLink(const std::filesystem::path& path,
                                  const std::filesystem::path& destination) override;
  FileResult<> createDirectories(const std::filesystem::path& path) override;
  // Works from a descriptor of each folder it enters below the fixed folder,
  // opened without following links, so a link swapped in during the removal
  // is only unlinked.
  FileResult<> removeItem(const std::filesystem::path& path,
                          const std::filesystem::path& fixedFolder) override;
  FileResult<> writeFile(const std::filesystem::path& path, std::string_view contents) override;
};

}  // namespace velmo::platform::linux
