#pragma once

#include <cstdint>
#include <optional>

#include <nlohmann/json_fwd.hpp>

#include "core/values/PlistValue.h"

namespace velmo::core {

// A wall-clock time as a window gives it. Ranges aren't checked anywhere: an
// hour of 25 simply never matches, an end of 24:00 reaches every minute.
struct TimeOfDay {
  std::int64_t hour{};
  std::int64_t minute{};

  // hour × 60 + minute; none when that overflows 64 bits, so that such a
  // time matches nothing.
  std::optional<std::int64_t> minuteOfDay() const;

  // A dictionary with "hour" and "minute", both required.
  PlistValue toPlist() const;
  // None when a key is missing or isn't a whole number.
  static std::optional<TimeOfDay> fromPlist(const PlistValue& value);

  bool operator==(const TimeOfDay&) const = default;
};

// Same keys. Decoding throws (nlohmann's exceptions) on a missing key or a
// number with no exact 64-bit integer form.
void to_json(nlohmann::json& json, const TimeOfDay& time);
void from_json(const nlohmann::json& json, TimeOfDay& time);

}  // namespace velmo::core
