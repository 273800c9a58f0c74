#include "core/time/TimeInterval.h"

#include <algorithm>
#include <array>
#include <cmath>
#include <cstdint>
#include <cstdio>
#include <limits>

namespace velmo::core {
namespace {

// Whole seconds toward zero; the callers' contract is finite and non-negative,
// but an out-of-range value is clamped rather than left undefined.
std::int64_t wholeSeconds(TimeInterval interval) {
  const double seconds = interval.count();
  if (!(seconds > 0)) return 0;
  if (seconds >= 9.2e18) return std::numeric_limits<std::int64_t>::max();
  return static_cast<std::int64_t>(seconds);
}

constexpr double kLongestSeconds = 100.0 * 365 * 24 * 3600;

}  // namespace

Duration toDuration(TimeInterval interval) {
  const double seconds = interval.count();
  if (!(seconds > 0)) return Duration::zero();
  return std::chrono::duration_cast<Duration>(TimeInterval(std::min(seconds, kLongestSeconds)));
}

std::string durationDescription(TimeInterval interval) {
  const std::int64_t t = wholeSeconds(interval);
  struct Unit {
    std::int64_t value;
    const char* singular;
    const char* plural;
  };
  const std::array<Unit, 5> units{{
      {t / 604800, "week", "weeks"},
      {(t % 604800) / 86400, "day", "days"},
      {(t % 86400) / 3600, "hour", "hours"},
      {(t % 3600) / 60, "minute", "minutes"},
      {t % 60, "second", "seconds"},
  }};
  std::string result;
  for (std::size_t i = 0; i < units.size(); ++i) {
    const Unit& unit = units[i];
    const bool last = i + 1 == units.size();
    if (unit.value < 1 && !(last && result.empty())) continue;
    if (!result.empty()) result += ", ";
    result += std::to_string(unit.value) + " " + (unit.value == 1 ? unit.singular : unit.plural);
  }
  return result;
}

}  // namespace velmo::core
