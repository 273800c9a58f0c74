#pragma once

#include <map>

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

 private:
  std::map<std::filesystem::path, std::string> files_;
  bool failWrites_ = false;
};

}  // namespace velmo::platform::fake
