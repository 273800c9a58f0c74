#pragma once

#include <cstddef>
#include <filesystem>
#include <functional>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "core/items/InstallState.h"

namespace velmo::core {

// One application with an update pending or in work, as the tool and the
// notifier announce it. Its JSON form is shared with the sibling programs:
// "id", "friendlyName", "targetVersion", "installedVersion" (only when
// present), "installPath", "respectDnd", "respectMeetings" and
// "serialInstallRequired" (only when present). `state` never travels: a
// decoded item is always available.
//
// Identity is the `id` alone: equality and hashing look at nothing else.
class UpdateItem {
 public:
  // Names, versions and paths run to a few hundred bytes at most; any account
  // can post items, and the agent keeps a thousand of them.
  static constexpr std::size_t kMaxFieldLength = 4096;

  UpdateItem(std::string id, std::string friendlyName, std::string targetVersion,
             std::optional<std::string> installedVersion, std::string installPath, bool respectDnd,
             bool respectMeetings, std::optional<bool> serialInstallRequired = std::nullopt,
             InstallState state = InstallState::available);

  std::string id;
  std::string friendlyName;
  std::string targetVersion;
  std::optional<std::string> installedVersion;
  std::string installPath;
  bool respectDnd = false;
  bool respectMeetings = false;
  std::optional<bool> serialInstallRequired;

  InstallState state() const { return state_; }
  // Prints "State for <id> changed to <state>" on standard output, as the
  // siblings' observer of this field does.
  void setState(InstallState state);

  std::filesystem::path installURL() const { return installPath; }

  friend bool operator==(const UpdateItem& a, const UpdateItem& b) { return a.id == b.id; }

  // Compact JSON; none when the text can't be made (invalid UTF-8).
  std::optional<std::string> jsonText() const;
  static std::optional<std::string> jsonText(const std::vector<UpdateItem>& items);
  // The state file's form: indented, slashes as they are.
  static std::optional<std::string> prettyJSONText(const std::vector<UpdateItem>& items);
  // None for anything but one well-formed item: bad JSON, a missing required
  // key, a value of the wrong JSON type. Unknown keys are ignored.
  static std::optional<UpdateItem> fromJSONText(std::string_view text);
  // All or nothing: one bad element fails the whole array.
  static std::optional<std::vector<UpdateItem>> arrayFromJSONText(std::string_view text);

 private:
  InstallState state_ = InstallState::available;
};

}  // namespace velmo::core

template <>
struct std::hash<velmo::core::UpdateItem> {
  std::size_t operator()(const velmo::core::UpdateItem& item) const noexcept {
    return std::hash<std::string>{}(item.id);
  }
};
