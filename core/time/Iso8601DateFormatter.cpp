#include "core/time/Iso8601DateFormatter.h"

#include <chrono>

#include "core/time/VelmoFormatters.h"

namespace velmo::core {
namespace {

// Reads exactly `count` ASCII digits at `at`.
std::optional<int> digits(std::string_view text, std::size_t at, std::size_t count) {
  if (at + count > text.size()) return std::nullopt;
  int value = 0;
  for (std::size_t i = at; i < at + count; ++i) {
    if (text[i] < '0' || text[i] > '9') return std::nullopt;
    value = value * 10 + (text[i] - '0');
  }
  return value;
}

// The zone's offset east of UTC, in minutes, if the whole rest is a zone.
std::optional<int> zoneOffset(std::string_view zone) {
  if (zone == "Z" || zone == "z") return 0;
  if (zone.size() < 3 || (zone[0] != '+' && zone[0] != '-')) return std::nullopt;
  const int sign = zone[0] == '-' ? -1 : 1;
  const auto hours = digits(zone, 1, 2);
  std::optional<int> minutes = 0;
  if (zone.size() == 6 && zone[3] == ':') {
    minutes = digits(zone, 4, 2);
  } else if (zone.size() == 5) {
    minutes = digits(zone, 3, 2);
  } else if (zone.size() != 3) {
    return std::nullopt;
  }
  if (!hours || !minutes || *hours > 23 || *minutes > 59) return std::nullopt;
  return sign * (*hours * 60 + *minutes);
}

}  // namespace

std::string Iso8601DateFormatter::string(TimePoint date) { return VelmoFormatters::iso8601(date); }

std::optional<TimePoint> Iso8601DateFormatter::date(std::string_view text) {
  // yyyy-MM-ddTHH:mm:ss, 19 characters, then the zone.
  if (text.size() < 20 || text[4] != '-' || text[7] != '-' || text[10] != 'T' || text[13] != ':' ||
      text[16] != ':') {
    return std::nullopt;
  }
  const auto year = digits(text, 0, 4);
  const auto month = digits(text, 5, 2);
  const auto day = digits(text, 8, 2);
  const auto hour = digits(text, 11, 2);
  const auto minute = digits(text, 14, 2);
  const auto second = digits(text, 17, 2);
  const auto offset = zoneOffset(text.substr(19));
  if (!year || !month || !day || !hour || !minute || !second || !offset) return std::nullopt;
  if (*hour > 23 || *minute > 59 || *second > 59) return std::nullopt;
  const std::chrono::year_month_day calendarDate{std::chrono::year(*year),
                                                 std::chrono::month(static_cast<unsigned>(*month)),
                                                 std::chrono::day(static_cast<unsigned>(*day))};
  if (!calendarDate.ok()) return std::nullopt;
  // Instants are nanoseconds in 64 bits: about 1678 to 2261. A date outside
  // can't be held, and reads as no date rather than overflowing.
  if (*year < 1678 || *year > 2261) return std::nullopt;
  return TimePoint(std::chrono::sys_days(calendarDate)) + std::chrono::hours(*hour) +
         std::chrono::minutes(*minute - *offset) + std::chrono::seconds(*second);
}

}  // namespace velmo::core
