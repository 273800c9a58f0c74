#pragma once

#include <filesystem>

#include "platform/FileManager.h"
#include "platform/Paths.h"
#include "platform/PreferenceStores.h"

namespace velmo::platform::linux {

// The preference stores as property-list files under the root prefix:
// <root>/Library/Managed Preferences/D.plist, <root>/var/root/Library/Preferences/D.plist
// and <root>/Library/Preferences/D.plist, XML or binary. A missing or damaged
// file, or one whose root is no dictionary, holds no values.
class PlistPreferenceStores final : public PreferenceStores {
 public:
  PlistPreferenceStores(const FileManager& files, const Paths& paths);

  std::optional<core::PlistDictionary> managedValues(std::string_view domain) const override;
  core::PlistDictionary copyAllValues(std::string_view domain) const override;
  bool isForced(std::string_view key, std::string_view domain) const override;

  std::optional<core::PlistDictionary> machineValues(std::string_view domain) const override;

 private:
  std::optional<core::PlistDictionary> read(const std::filesystem::path& file) const;

  const FileManager& files_;
  const Paths& paths_;
};

}  // namespace velmo::platform::linux
