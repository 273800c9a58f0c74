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

  // What a domain's user defaults read for a key: the managed store's value
  // first, then root's own, then the machine-wide one.
  std::optional<core::PlistValue> layeredValue(std::string_view domain,
                                               std::string_view key) const {
    const auto in =
        [key](
            const std::optional<core::PlistDictionary>& store) -> std::optional<core::PlistValue> {
      if (!store) return std::nullopt;
      const auto found = store->find(key);
      if (found == store->end()) return std::nullopt;
      return found->second;
    };
    if (auto value = in(managedValues(domain))) return value;
    if (auto value = in(copyAllValues(domain))) return value;
    return in(machineValues(domain));
  }
};

}  // namespace velmo::platform
