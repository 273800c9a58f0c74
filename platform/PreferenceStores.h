#pragma once

#include <optional>
#include <string_view>

#include "core/values/PlistValue.h"

namespace velmo::platform {

// The preference system of the machine, per application domain: the file an
// administrator imposes (managed), root's own store, and the machine-wide
// store. Every call sees the stores as they are now.
class PreferenceStores {
 public:
  virtual ~PreferenceStores() = default;

  // The managed values of the domain; nothing when no usable file imposes any.
  virtual std::optional<core::PlistDictionary> managedValues(std::string_view domain) const = 0;
  // All values of the domain in root's own store (empty when there are none).
  virtual core::PlistDictionary copyAllValues(std::string_view domain) const = 0;
  // All values of the domain in the machine-wide store; nothing when no usable file holds any.
  virtual std::optional<core::PlistDictionary> machineValues(std::string_view domain) const = 0;
  // Whether the management layer imposes the key.
  virtual bool isForced(std::string_view key, std::string_view domain) const = 0;
};

}  // namespace velmo::platform
