#pragma once

#include <set>

#include "platform/FileManager.h"

namespace velmo::platform::fake {

class FakeFileManager final : public FileManager {
 public:
  void addFile(const std::filesystem::path& path) { files_.insert(path); }
  bool fileExists(const std::filesystem::path& path) const override {
    return files_.count(path) > 0;
  }

 private:
  std::set<std::filesystem::path> files_;
};

}  // namespace velmo::platform::fake
