#pragma once

#include <optional>
#include <string>
#include <string_view>

#include "core/values/PlistValue.h"

namespace velmo::core {

// Property-list files: read in any format (XML or binary), written as XML.
class PropertyList {
 public:
  PropertyList() = delete;

  // The root value, or nothing when the bytes aren't a property list.
  static std::optional<PlistValue> parse(std::string_view bytes);
  // The XML form, or the reason it can't be made.
  static std::optional<std::string> xml(const PlistValue& root, std::string* failure = nullptr);
};

}  // namespace velmo::core
