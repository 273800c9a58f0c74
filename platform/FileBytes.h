#pragma once

#include <memory>
#include <string>
#include <string_view>

namespace velmo::platform {

// Bytes read from a file: held in a string, or in memory that the platform
// allocated its own way and that an owner releases. Cheap to move; the bytes
// stay valid as long as the object lives.
class FileBytes {
 public:
  FileBytes() = default;
  explicit FileBytes(std::string contents)
      : owner_(std::make_shared<const std::string>(std::move(contents))),
        view_(*static_cast<const std::string*>(owner_.get())) {}
  // `owner` keeps the memory behind `view` alive, and releases it when dropped.
  FileBytes(std::string_view view, std::shared_ptr<const void> owner)
      : owner_(std::move(owner)), view_(view) {}

  std::string_view view() const { return view_; }

 private:
  std::shared_ptr<const void> owner_;
  std::string_view view_;
};

}  // namespace velmo::platform
