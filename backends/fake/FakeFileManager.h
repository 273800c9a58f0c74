#pragma once

#include <algorithm>
#include <cstdint>
#include <map>
#include <set>

#include "platform/FileManager.h"

namespace velmo::platform::fake {

// Files in memory. A write can be made to fail at any of its steps; a failed
// step leaves what a real file system would.
class FakeFileManager final : public FileManager {
 public:
  // The steps of writeFileAtomically, in their order.
  enum class WriteStep { createTemporary, write, flush, rename, flushFolder };

  void addFile(const std::filesystem::path& path, std::string contents = "") {
    files_[path] = std::move(contents);
  }
  // The next `count` durable and plain writes fail at `step`, as a full disk
  // fails them; a plain write fails at any step but the folder's flush.
  void failWrites(WriteStep step, std::size_t count = SIZE_MAX) {
    failingStep_ = step;
    failuresLeft_ = count;
  }
  void stopFailingWrites() { failuresLeft_ = 0; }
  // Durable writes that succeeded, of any file.
  std::size_t durableWrites() const { return durableWrites_; }

  bool fileExists(const std::filesystem::path& path) const override {
    return files_.count(path) > 0;
  }
  FileResult<std::string> readFile(const std::filesystem::path& path) const override {
    auto found = files_.find(path);
    if (found == files_.end()) return noSuchFile();
    return found->second;
  }
  FileResult<std::string> readFile(const std::filesystem::path& path,
                                   std::uint64_t maxBytes) const override {
    auto found = readFile(path);
    if (found.ok() && found.value().size() > maxBytes) {
      return FileError{"File too large", "NSPOSIXErrorDomain", 27};
    }
    return found;
  }
  FileResult<> writeFileAtomically(const std::filesystem::path& path,
                                   std::string_view contents) override {
    const std::filesystem::path temporary = path.string() + ".tmp";
    const auto abandon = [&] {
      files_.erase(temporary);
      return noSpace(path);
    };
    if (failsAt(WriteStep::createTemporary)) return noSpace(path);
    files_[temporary] = std::string(contents);
    if (failsAt(WriteStep::write) || failsAt(WriteStep::flush) || failsAt(WriteStep::rename)) {
      return abandon();
    }
    files_[path] = std::move(files_.extract(temporary).mapped());
    // After the rename: the new content is in place, but not known to be on disk.
    if (failsAt(WriteStep::flushFolder)) return noSpace(path);
    ++durableWrites_;
    return {};
  }
  // The files directly in `path`, all regular and without a creation date.
  // The fake holds no links to refuse, but keeps the rule that `path` lies
  // in `fixedFolder`.
  FileResult<std::vector<DirectoryEntry>> contentsOfDirectory(
      const std::filesystem::path& path, const std::filesystem::path& fixedFolder,
      bool skipHiddenFiles) const override {
    if (!within(path, fixedFolder)) return invalidArgument();
    std::vector<DirectoryEntry> entries;
    for (const auto& [file, contents] : files_) {
      const bool hidden = file.filename().string().starts_with(".");
      if (file.parent_path() == path && !(skipHiddenFiles && hidden)) {
        entries.push_back({file, DirectoryEntry::Type::regular, std::nullopt});
      }
    }
    if (entries.empty() && !directories_.count(path)) return noSuchFile();
    return entries;
  }
  FileResult<FileTail> readFileTail(const std::filesystem::path& path,
                                    const std::filesystem::path& fixedFolder,
                                    std::uint64_t maxBytes) const override {
    if (!within(path, fixedFolder)) return invalidArgument();
    auto found = files_.find(path);
    if (found == files_.end()) return noSuchFile();
    const std::string& contents = found->second;
    const auto length =
        static_cast<std::size_t>(std::min<std::uint64_t>(contents.size(), maxBytes));
    return FileTail{contents.size(), FileBytes(contents.substr(contents.size() - length))};
  }
  FileResult<std::string> destinationOfSymbolicLink(
      const std::filesystem::path& path) const override {
    auto found = links_.find(path);
    if (found == links_.end()) return invalidArgument();
    return found->second;
  }
  FileResult<> createSymbolicLink(const std::filesystem::path& path,
                                  const std::filesystem::path& destination) override {
    if (links_.count(path) || files_.count(path)) {
      return FileError{"File exists", "NSPOSIXErrorDomain", 17};
    }
    links_[path] = destination.string();
    return {};
  }
  FileResult<> createDirectories(const std::filesystem::path& path) override {
    directories_.insert(path);
    return {};
  }
  FileResult<> removeItem(const std::filesystem::path& path,
                          const std::filesystem::path& fixedFolder) override {
    if (path == fixedFolder || !within(path, fixedFolder)) return invalidArgument();
    if (failRemovals_) return FileError{"Cannot remove " + path.string(), "NSPOSIXErrorDomain", 1};
    if (!files_.erase(path) && !links_.erase(path)) return noSuchFile();
    return {};
  }
  FileResult<> writeFile(const std::filesystem::path& path, std::string_view contents) override {
    if (failsAt(WriteStep::write)) return noSpace(path);
    files_[path] = std::string(contents);
    return {};
  }

  void failRemovals(bool fail) { failRemovals_ = fail; }
  bool directoryCreated(const std::filesystem::path& path) const {
    return directories_.count(path) > 0;
  }

 private:
  static FileError noSuchFile() { return {"No such file", "NSPOSIXErrorDomain", 2}; }
  static FileError invalidArgument() { return {"Invalid argument", "NSPOSIXErrorDomain", 22}; }
  static FileError noSpace(const std::filesystem::path& path) {
    return {"Cannot write " + path.string() + ": No space left on device", "NSPOSIXErrorDomain",
            28};
  }
  bool failsAt(WriteStep step) {
    if (failuresLeft_ == 0 || step != failingStep_) return false;
    --failuresLeft_;
    return true;
  }
  static bool within(const std::filesystem::path& path, const std::filesystem::path& folder) {
    const auto relative = path.lexically_normal().lexically_relative(folder.lexically_normal());
    return !relative.empty() && *relative.begin() != "..";
  }

  std::map<std::filesystem::path, std::string> files_;
  std::map<std::filesystem::path, std::string> links_;
  std::set<std::filesystem::path> directories_;
  WriteStep failingStep_ = WriteStep::write;
  std::size_t failuresLeft_ = 0;
  std::size_t durableWrites_ = 0;
  bool failRemovals_ = false;
};

}  // namespace velmo::platform::fake
