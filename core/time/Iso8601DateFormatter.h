#pragma once

#include <optional>
#include <string>
#include <string_view>

#include "core/values/Time.h"

namespace velmo::core {

// Dates in state files: internet date and time, UTC, whole seconds, "Z"
// (2026-03-10T14:05:00Z). Reading is strict, as the platform's formatter in
// its default configuration is: seconds and a zone are required (Z, z, +HH:MM,
// +HHMM or +HH), the T is upper-case, no fraction, no impossible dates, and
// nothing may follow the zone.
class Iso8601DateFormatter {
 public:
  Iso8601DateFormatter() = delete;

  static std::string string(TimePoint date);
  static std::optional<TimePoint> date(std::string_view text);
};

}  // namespace velmo::core
