#pragma once

#include <cmath>
#include <cstdint>
#include <limits>
#include <optional>

#include <nlohmann/json.hpp>

#include "core/values/PlistValue.h"

namespace velmo::core {

// A whole number in a decoded value, taken as the platform's decoders take a
// 64-bit integer: an integer, or a real only when it converts exactly.
// Booleans and strings never count.
inline std::optional<std::int64_t> exactInteger(double value) {
  // 2^63 is exact in a double; every integral double below it fits.
  constexpr double kLimit = 9223372036854775808.0;
  if (!std::isfinite(value) || std::trunc(value) != value) return std::nullopt;
  if (value < -kLimit || value >= kLimit) return std::nullopt;
  return static_cast<std::int64_t>(value);
}

inline std::optional<std::int64_t> decodeInteger(const PlistValue& value) {
  if (const auto* integer = value.getIf<std::int64_t>()) return *integer;
  if (const auto* real = value.getIf<double>()) return exactInteger(*real);
  return std::nullopt;
}

// Throws nlohmann's type_error for a non-number, out_of_range for a number
// with no exact 64-bit form.
inline std::int64_t decodeInteger(const nlohmann::json& json) {
  switch (json.type()) {
    case nlohmann::json::value_t::number_integer:
      return json.get<std::int64_t>();
    case nlohmann::json::value_t::number_unsigned: {
      const auto value = json.get<std::uint64_t>();
      if (value <= static_cast<std::uint64_t>(std::numeric_limits<std::int64_t>::max()))
        return static_cast<std::int64_t>(value);
      break;
    }
    case nlohmann::json::value_t::number_float:
      if (const auto value = exactInteger(json.get<double>())) return *value;
      break;
    default:
      throw nlohmann::json::type_error::create(
          302, std::string("type must be number, but is ") + json.type_name(), &json);
  }
  throw nlohmann::json::out_of_range::create(406, "number is not an exact 64-bit integer", &json);
}

}  // namespace velmo::core
