#pragma once

#include <cstddef>
#include <cstdint>
#include <functional>
#include <optional>
#include <string>
#include <utility>

#include <nlohmann/json.hpp>

namespace velmo::core {

// A version string as vendors actually write them ("1.10", "2.0-beta",
// "2024.03.1"): any text is accepted, and ordering is by dot-separated
// components whose digit runs compare as numbers. Missing trailing components
// count as "0", so "1.2" equals "1.2.0".
struct LooseNumericVersion {
  LooseNumericVersion() = default;
  LooseNumericVersion(std::string rawValue) : rawValue(std::move(rawValue)) {}
  LooseNumericVersion(const char* rawValue) : rawValue(rawValue) {}

  std::string rawValue;

  const std::string& description() const { return rawValue; }

  // -1, 0 or 1. Digit runs compare by value (read modulo 2^64, so a run past
  // 64 bits wraps rather than saturating); everything else by UTF-16 code
  // unit, with no locale and no case folding.
  static int compare(const LooseNumericVersion& l, const LooseNumericVersion& r);

  // The first dot-separated number, when the first non-empty component is a
  // whole base-10 integer that fits 64 bits.
  std::optional<std::int64_t> majorComponent() const;

  friend bool operator<(const LooseNumericVersion& a, const LooseNumericVersion& b) {
    return compare(a, b) == -1;
  }
  friend bool operator>(const LooseNumericVersion& a, const LooseNumericVersion& b) {
    return compare(b, a) == -1;
  }
  friend bool operator<=(const LooseNumericVersion& a, const LooseNumericVersion& b) {
    return compare(b, a) != -1;
  }
  friend bool operator>=(const LooseNumericVersion& a, const LooseNumericVersion& b) {
    return compare(a, b) != -1;
  }
  friend bool operator==(const LooseNumericVersion& a, const LooseNumericVersion& b) {
    return compare(a, b) == 0;
  }
  friend bool operator!=(const LooseNumericVersion& a, const LooseNumericVersion& b) {
    return !(a == b);
  }
};

// {"rawValue": "<text>"}. Decoding throws (nlohmann's exceptions) when the key
// is missing or its value isn't a string.
void to_json(nlohmann::json& json, const LooseNumericVersion& version);
void from_json(const nlohmann::json& json, LooseNumericVersion& version);

}  // namespace velmo::core

// Over the numeric components with trailing zeros dropped, so versions that
// differ only by padding or leading zeros ("1.2", "01.2.0") hash alike.
// Components that aren't whole numbers count as 0, which keeps the hash
// consistent with equality for plain numeric versions only.
template <>
struct std::hash<velmo::core::LooseNumericVersion> {
  std::size_t operator()(const velmo::core::LooseNumericVersion& version) const noexcept;
};
