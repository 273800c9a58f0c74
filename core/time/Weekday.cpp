#include "core/time/Weekday.h"

#include <nlohmann/json.hpp>

#include "core/values/RawValueCoding.h"

namespace velmo::core {
namespace {

struct Row {
  Weekday day;
  std::string_view raw;
  int calendarValue;
};

// Indexed by the enumerator's value.
constexpr std::array<Row, 7> kRows{{
    {Weekday::mon, "mon", 2},
    {Weekday::tue, "tue", 3},
    {Weekday::wed, "wed", 4},
    {Weekday::thu, "thu", 5},
    {Weekday::fri, "fri", 6},
    {Weekday::sat, "sat", 7},
    {Weekday::sun, "sun", 1},
}};

const Row& row(Weekday day) { return kRows[static_cast<std::size_t>(day)]; }

}  // namespace

std::string_view rawValue(Weekday day) { return row(day).raw; }

std::optional<Weekday> weekdayFromRawValue(std::string_view raw) {
  for (const auto& entry : kRows) {
    if (entry.raw == raw) return entry.day;
  }
  return std::nullopt;
}

int calendarValue(Weekday day) { return row(day).calendarValue; }

void to_json(nlohmann::json& json, Weekday day) { json = rawValue(day); }

void from_json(const nlohmann::json& json, Weekday& day) {
  day = decodeRawValue(json, weekdayFromRawValue, "Weekday");
}

}  // namespace velmo::core
