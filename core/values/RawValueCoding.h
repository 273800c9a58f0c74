#pragma once

#include <optional>
#include <string>
#include <string_view>

#include <nlohmann/json.hpp>

namespace velmo::core {

// Decodes a raw-valued enumeration from its JSON form, a string. A non-string
// throws nlohmann's own type_error; so does a string outside the table, since
// the Mac's decoder fails there too rather than picking a default case.
template <typename Enum>
Enum decodeRawValue(const nlohmann::json& json,
                    std::optional<Enum> (*fromRawValue)(std::string_view),
                    std::string_view typeName) {
  const auto raw = json.get<std::string>();
  if (const auto value = fromRawValue(raw)) return *value;
  throw nlohmann::json::type_error::create(
      302,
      "cannot initialize " + std::string(typeName) + " from invalid string value \"" + raw + "\"",
      &json);
}

}  // namespace velmo::core
