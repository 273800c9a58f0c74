#pragma once

#include <cstdint>
#include <map>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "core/values/PlistValue.h"
#include "platform/UserDefaults.h"

namespace velmo::mdm {

// The conversions of managed preference values to what a caller asks for,
// as the platform's string and number classes make them. Each gives nothing
// when the value isn't usable, and the caller then takes its default.
// Booleans, integers and reals of a property list all count as numbers.
class PreferenceConversions {
 public:
  PreferenceConversions() = delete;

  // A string as it is; a number as its decimal text (a Boolean as "1"/"0",
  // a real with up to 16 significant digits).
  static std::optional<std::string> string(const core::PlistValue& value);
  // A number: non-zero is true. A string: see stringBoolValue.
  static std::optional<bool> boolean(const core::PlistValue& value);
  // A number: truncated toward zero, clamped. A string: strictInteger.
  static std::optional<std::int64_t> integer(const core::PlistValue& value);
  // A number as it is; a string parsed whole by the C locale's strtod, with
  // no leading white space.
  static std::optional<double> real(const core::PlistValue& value);
  // Entries whose value is a number or a strict integer string; others dropped.
  static std::optional<std::map<std::string, std::int64_t>> stringIntDictionary(
      const core::PlistValue& value);
  // Strings, and numbers as their text, in order; other elements dropped.
  static std::optional<std::vector<std::string>> stringArray(const core::PlistValue& value);

  // A defaults key read as the platform's boolForKey: does: unset or unusable
  // is false, a number or a string converts as `boolean` does.
  static bool boolForKey(const platform::UserDefaults& defaults, std::string_view key);

  // After white space: Y, y, T or t is true; else after one optional sign
  // and any zeros, true exactly when a digit 1 to 9 follows.
  static bool stringBoolValue(std::string_view text);
  // The whole string in base 10 with one optional leading sign; nothing for
  // an empty string, any other character (white space too), or overflow.
  static std::optional<std::int64_t> strictInteger(std::string_view text);
};

}  // namespace velmo::mdm
