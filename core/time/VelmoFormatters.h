#pragma once

#include <string>

#include "core/values/Time.h"

namespace velmo::core {

// Human-readable and log-stamp forms of dates. They serve log lines only.
class VelmoFormatters {
 public:
  VelmoFormatters() = delete;

  // Local time in the current locale, medium date and short time, such as
  // "Mar 10, 2026, 2:05 PM". Locale and time zone are taken at first use.
  static std::string friendlyDate(TimePoint date);

  // UTC, whole seconds: "2026-03-10T14:05:09Z".
  static std::string iso8601(TimePoint date);
  // UTC with milliseconds: "2026-03-10T14:05:09.123Z".
  static std::string iso8601WithMilliseconds(TimePoint date);
};

}  // namespace velmo::core
