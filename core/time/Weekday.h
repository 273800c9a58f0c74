#pragma once

#include <array>
#include <optional>
#include <string_view>

#include <nlohmann/json_fwd.hpp>

namespace velmo::core {

// A day of the week as window lists name it.
enum class Weekday { mon, tue, wed, thu, fri, sat, sun };

inline constexpr std::array<Weekday, 7> kAllWeekdays{Weekday::mon, Weekday::tue, Weekday::wed,
                                                     Weekday::thu, Weekday::fri, Weekday::sat,
                                                     Weekday::sun};

// "mon" to "sun".
std::string_view rawValue(Weekday day);
// Exact match, case included; none for anything else.
std::optional<Weekday> weekdayFromRawValue(std::string_view raw);

// The Gregorian calendar's weekday number: Sunday is 1, Saturday 7.
int calendarValue(Weekday day);

// JSON form: the raw value as a string. Decoding throws on anything else.
void to_json(nlohmann::json& json, Weekday day);
void from_json(const nlohmann::json& json, Weekday& day);

}  // namespace velmo::core
