#include "core/time/VelmoTimeWindow.h"

#include <algorithm>
#include <string>
#include <utility>

#include <nlohmann/json.hpp>

#include "core/values/DecodedInteger.h"
#include "core/values/PropertyList.h"
#include "core/values/RawValueCoding.h"

namespace velmo::core {
namespace {

constexpr std::string_view kTypeKey = "type";
constexpr std::string_view kDaysKey = "days";
constexpr std::string_view kWeeksOfMonthKey = "weeksOfMonth";
constexpr std::string_view kStartKey = "start";
constexpr std::string_view kEndKey = "end";

const PlistValue* find(const PlistDictionary& dictionary, std::string_view key) {
  const auto found = dictionary.find(key);
  return found == dictionary.end() ? nullptr : &found->second;
}

std::optional<std::set<Weekday>> daysFromPlist(const PlistValue& value) {
  const auto* array = value.getIf<PlistArray>();
  if (!array) return std::nullopt;
  std::set<Weekday> days;
  for (const auto& element : *array) {
    const auto* raw = element.getIf<std::string>();
    const auto day = raw ? weekdayFromRawValue(*raw) : std::nullopt;
    if (!day) return std::nullopt;
    days.insert(*day);
  }
  return days;
}

std::optional<std::set<std::int64_t>> weeksFromPlist(const PlistValue& value) {
  const auto* array = value.getIf<PlistArray>();
  if (!array) return std::nullopt;
  std::set<std::int64_t> weeks;
  for (const auto& element : *array) {
    const auto week = decodeInteger(element);
    if (!week) return std::nullopt;
    weeks.insert(*week);
  }
  return weeks;
}

void requireArray(const nlohmann::json& json) {
  if (!json.is_array()) {
    throw nlohmann::json::type_error::create(
        302, std::string("type must be array, but is ") + json.type_name(), &json);
  }
}

void combine(std::size_t& seed, std::size_t value) {
  seed ^= value + static_cast<std::size_t>(0x9e3779b97f4a7c15ULL) + (seed << 6) + (seed >> 2);
}

}  // namespace

bool VelmoTimeWindow::appliesOn(int calendarWeekday, std::int64_t weekOfMonth) const {
  const bool onDay = std::any_of(
      days.begin(), days.end(), [&](Weekday day) { return calendarValue(day) == calendarWeekday; });
  if (!onDay) return false;
  return !weeksOfMonth || weeksOfMonth->empty() || weeksOfMonth->contains(weekOfMonth);
}

bool VelmoTimeWindow::matches(int calendarWeekday, std::int64_t weekOfMonth,
                              std::int64_t minuteOfDay) const {
  if (!appliesOn(calendarWeekday, weekOfMonth)) return false;
  const auto first = start.minuteOfDay();
  const auto last = end.minuteOfDay();
  if (!first || !last) return false;
  if (*last < *first) return *first <= minuteOfDay || minuteOfDay <= *last;
  return *first <= minuteOfDay && minuteOfDay <= *last;
}

PlistValue VelmoTimeWindow::toPlist() const {
  PlistDictionary dictionary;
  if (type) dictionary.emplace(kTypeKey, std::string(rawValue(*type)));
  PlistArray dayArray;
  for (const auto day : days) dayArray.emplace_back(std::string(rawValue(day)));
  dictionary.emplace(kDaysKey, std::move(dayArray));
  if (weeksOfMonth) {
    dictionary.emplace(kWeeksOfMonthKey, PlistArray(weeksOfMonth->begin(), weeksOfMonth->end()));
  }
  dictionary.emplace(kStartKey, start.toPlist());
  dictionary.emplace(kEndKey, end.toPlist());
  return dictionary;
}

std::optional<VelmoTimeWindow> VelmoTimeWindow::fromPlist(const PlistValue& value) {
  const auto* dictionary = value.getIf<PlistDictionary>();
  if (!dictionary) return std::nullopt;
  VelmoTimeWindow window;
  if (const auto* type = find(*dictionary, kTypeKey)) {
    const auto* raw = type->getIf<std::string>();
    window.type = raw ? windowTypeFromRawValue(*raw) : std::nullopt;
    if (!window.type) return std::nullopt;
  }
  const auto* days = find(*dictionary, kDaysKey);
  auto decodedDays = days ? daysFromPlist(*days) : std::nullopt;
  if (!decodedDays) return std::nullopt;
  window.days = std::move(*decodedDays);
  if (const auto* weeks = find(*dictionary, kWeeksOfMonthKey)) {
    window.weeksOfMonth = weeksFromPlist(*weeks);
    if (!window.weeksOfMonth) return std::nullopt;
  }
  const auto* start = find(*dictionary, kStartKey);
  const auto* end = find(*dictionary, kEndKey);
  auto decodedStart = start ? TimeOfDay::fromPlist(*start) : std::nullopt;
  auto decodedEnd = end ? TimeOfDay::fromPlist(*end) : std::nullopt;
  if (!decodedStart || !decodedEnd) return std::nullopt;
  window.start = *decodedStart;
  window.end = *decodedEnd;
  return window;
}

PlistValue VelmoTimeWindow::toPlistArray(const std::vector<VelmoTimeWindow>& windows) {
  PlistArray array;
  array.reserve(windows.size());
  for (const auto& window : windows) array.push_back(window.toPlist());
  return array;
}

std::optional<std::vector<VelmoTimeWindow>> VelmoTimeWindow::fromPlistArray(
    const PlistValue& value) {
  const auto* array = value.getIf<PlistArray>();
  if (!array) return std::nullopt;
  std::vector<VelmoTimeWindow> windows;
  windows.reserve(array->size());
  for (const auto& element : *array) {
    auto window = fromPlist(element);
    if (!window) return std::nullopt;
    windows.push_back(std::move(*window));
  }
  return windows;
}

std::vector<VelmoTimeWindow> VelmoTimeWindow::fromStoredList(
    const std::optional<PlistValue>& object) {
  if (!object) return {};
  if (const auto* data = object->getIf<PlistData>()) {
    // A blob that doesn't decode is done with: read as a plain object it
    // would still be data, which is never an array of windows.
    const auto root = PropertyList::parse(
        std::string_view(reinterpret_cast<const char*>(data->data()), data->size()));
    if (!root) return {};
    return fromPlistArray(*root).value_or(std::vector<VelmoTimeWindow>());
  }
  return fromPlistArray(*object).value_or(std::vector<VelmoTimeWindow>());
}

std::string_view rawValue(VelmoTimeWindow::WindowType type) {
  return type == VelmoTimeWindow::WindowType::allow ? "allow" : "deny";
}

std::optional<VelmoTimeWindow::WindowType> windowTypeFromRawValue(std::string_view raw) {
  for (const auto type : kAllWindowTypes) {
    if (rawValue(type) == raw) return type;
  }
  return std::nullopt;
}

void to_json(nlohmann::json& json, VelmoTimeWindow::WindowType type) { json = rawValue(type); }

void from_json(const nlohmann::json& json, VelmoTimeWindow::WindowType& type) {
  type = decodeRawValue(json, windowTypeFromRawValue, "WindowType");
}

void to_json(nlohmann::json& json, const VelmoTimeWindow& window) {
  json = nlohmann::json::object();
  if (window.type) json[kTypeKey] = *window.type;
  json[kDaysKey] = nlohmann::json::array();
  for (const auto day : window.days) json[kDaysKey].push_back(day);
  if (window.weeksOfMonth) json[kWeeksOfMonthKey] = *window.weeksOfMonth;
  json[kStartKey] = window.start;
  json[kEndKey] = window.end;
}

void from_json(const nlohmann::json& json, VelmoTimeWindow& window) {
  // Decode into a fresh value first, so a failure leaves `window` untouched.
  VelmoTimeWindow decoded;
  if (const auto type = json.find(kTypeKey); type != json.end() && !type->is_null()) {
    decoded.type = type->get<VelmoTimeWindow::WindowType>();
  }
  const auto& days = json.at(kDaysKey);
  requireArray(days);
  for (const auto& day : days) decoded.days.insert(day.get<Weekday>());
  if (const auto weeks = json.find(kWeeksOfMonthKey); weeks != json.end() && !weeks->is_null()) {
    requireArray(*weeks);
    decoded.weeksOfMonth.emplace();
    for (const auto& week : *weeks) decoded.weeksOfMonth->insert(decodeInteger(week));
  }
  json.at(kStartKey).get_to(decoded.start);
  json.at(kEndKey).get_to(decoded.end);
  window = std::move(decoded);
}

std::string VelmoTimeWindow::description() const {
  static constexpr std::string_view kDayNames[] = {"Sun", "Mon", "Tue", "Wed", "Thu", "Fri", "Sat"};
  const auto twoDigits = [](std::int64_t number) {
    return (number >= 0 && number < 10 ? "0" : "") + std::to_string(number);
  };
  const auto clock = [&](const TimeOfDay& time) {
    return twoDigits(time.hour) + ":" + twoDigits(time.minute);
  };
  std::string text;
  for (const auto day : days) {
    if (!text.empty()) text += ", ";
    text += kDayNames[static_cast<std::size_t>(calendarValue(day) - 1)];
  }
  if (text.empty()) text = "no day";
  text += " " + clock(start) + "\u2013" + clock(end);
  if (weeksOfMonth && !weeksOfMonth->empty()) {
    std::string weeks;
    for (const auto week : *weeksOfMonth) {
      if (!weeks.empty()) weeks += ", ";
      weeks += std::to_string(week);
    }
    text +=
        std::string(" in week") + (weeksOfMonth->size() > 1 ? "s " : " ") + weeks + " of the month";
  }
  return text;
}

}  // namespace velmo::core

std::size_t std::hash<velmo::core::VelmoTimeWindow>::operator()(
    const velmo::core::VelmoTimeWindow& window) const noexcept {
  using velmo::core::combine;
  std::size_t seed = 0;
  combine(seed, window.type.has_value());
  if (window.type) combine(seed, static_cast<std::size_t>(*window.type));
  // Sets iterate in order, so equal sets hash alike.
  for (const auto day : window.days) combine(seed, static_cast<std::size_t>(day));
  combine(seed, window.days.size());
  combine(seed, window.weeksOfMonth.has_value());
  if (window.weeksOfMonth) {
    for (const auto week : *window.weeksOfMonth) combine(seed, std::hash<std::int64_t>{}(week));
    combine(seed, window.weeksOfMonth->size());
  }
  for (const auto& time : {window.start, window.end}) {
    combine(seed, std::hash<std::int64_t>{}(time.hour));
    combine(seed, std::hash<std::int64_t>{}(time.minute));
  }
  return seed;
}
