#pragma once

#include <algorithm>
#include <map>
#include <set>

#include "platform/FileManager.h"

namespace velmo::platform::fake {

// Files in memory. Writes can be made to fail, leaving the old content.
class FakeFileManager final : public FileManager {
 public:
  void addFile(const std::filesystem::path& path, std::string contents = "") {
    files_[path] = std::move(contents);
  }
  void failWrites(bool fail) { failWrites_ = fail; }

  bool fileExists(const std::filesystem::path& path) const override {
    return files_.count(path) > 0;
  }
  std::optional<std::string> readFile(const std::filesystem::path& path) const override {
    auto found = files_.find(path);
    if (found == files_.end()) return std::nullopt;
    return found->second;
  }
  std::optional<std::string> writeFileAtomically(const std::filesystem::path& path,
                                                 const std::string& contents) override {
    if (failWrites_) return "Cannot write " + path.string() + ": Read-only file system";
    files_[path] = contents;
    return std::nullopt;
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
  std::optional<FileError> createSymbolicLink(const std::filesystem::path& path,
                                              const std::filesystem::path& destination) override {
    if (links_.count(path) || files_.count(path)) {
      return FileError{"File exists", "NSPOSIXErrorDomain", 17};
    }
    links_[path] = destination.string();
    return std::nullopt;
  }
  std::optional<FileError> createDirectories(const std::filesystem::path& path) override {
    directories_.insert(path);
    return std::nullopt;
  }
  std::optional<FileError> removeItem(const std::filesystem::path& path,
                                      const std::filesystem::path& fixedFolder) override {
    if (path == fixedFolder || !within(path, fixedFolder)) return invalidArgument();
    if (failRemovals_) return FileError{"Cannot remove " + path.string(), "NSPOSIXErrorDomain", 1};
    if (!files_.erase(path) && !links_.erase(path)) return noSuchFile();
    return std::nullopt;
  }
  std::optional<FileError> writeFile(const std::filesystem::path& path,
                                     std::string_view contents) override {
    if (failWrites_) return FileError{"Cannot write " + path.string(), "NSPOSIXErrorDomain", 30};
    files_[path] = std::string(contents);
    return std::nullopt;
  }
  std::optional<FileError> replaceItem(const std::filesystem::path& original,
                                       const std::filesystem::path& replacement) override {
    auto found = files_.find(replacement);
    if (found == files_.end()) return noSuchFile();
    files_[original] = found->second;
    files_.erase(replacement);
    return std::nullopt;
  }
  std::optional<FileError> moveItem(const std::filesystem::path& source,
                                    const std::filesystem::path& destination) override {
    if (files_.count(destination)) return FileError{"File exists", "NSPOSIXErrorDomain", 17};
    return replaceItem(destination, source);
  }

  void failRemovals(bool fail) { failRemovals_ = fail; }
  bool directoryCreated(const std::filesystem::path& path) const {
    return directories_.count(path) > 0;
  }

 private:
  static FileError noSuchFile() { return {"No such file", "NSPOSIXErrorDomain", 2}; }
  static FileError invalidArgument() { return {"Invalid argument", "NSPOSIXErrorDomain", 22}; }
  static bool within(const std::filesystem::path& path, const std::filesystem::path& folder) {
    const auto relative = path.lexically_normal().lexically_relative(folder.lexically_normal());
    return !relative.empty() && *relative.begin() != "..";
  }

  std::map<std::filesystem::path, std::string> files_;
  std::map<std::filesystem::path, std::string> links_;
  std::set<std::filesystem::path> directories_;
  bool failWrites_ = false;
  bool failRemovals_ = false;
};

}  // namespace velmo::platform::fake
