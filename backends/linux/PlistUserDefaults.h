#pragma once

#include <string>

#include "backends/linux/PlistPreferenceStores.h"
#include "platform/FileManager.h"
#include "platform/UserDefaults.h"

namespace velmo::platform::linux {

// User defaults of one domain over the property-list stores: each read looks
// in the managed file, then root's own, then the machine-wide one, afresh.
class PlistUserDefaults final : public UserDefaults {
 public:
  PlistUserDefaults(FileManager& files, const Paths& paths, std::string domain);

  std::optional<core::PlistValue> object(std::string_view key) const override;
  // Writes root's own store in one durable step, keeping its other keys. A
  // failed write changes nothing.
  FileResult<> setObject(std::string_view key, const core::PlistValue& value) override;

 private:
  FileManager& files_;
  const Paths& paths_;
  PlistPreferenceStores stores_;
  std::string domain_;
};

}  // namespace velmo::platform::linux
