#pragma once

#include <optional>
#include <string_view>

#include "core/values/PlistValue.h"
#include "platform/FileManager.h"

namespace velmo::platform {

// A program's user defaults: reads search the managed, root's own and the
// machine-wide store of its domain, key by key, first hit winning; writes go
// to root's own store. Every read sees the stores as they are now.
class UserDefaults {
 public:
  virtual ~UserDefaults() = default;
  virtual std::optional<core::PlistValue> object(std::string_view key) const = 0;
  // Gives why the store could not be written; the caller logs it.
  virtual FileResult<> setObject(std::string_view key, const core::PlistValue& value) = 0;
};

}  // namespace velmo::platform
