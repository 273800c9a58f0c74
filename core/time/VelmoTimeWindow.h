#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <functional>
#include <optional>
#include <set>
#include <string>
#include <string_view>
#include <vector>

#include <nlohmann/json_fwd.hpp>

#include "core/time/TimeOfDay.h"
#include "core/time/Weekday.h"
#include "core/values/PlistValue.h"

namespace velmo::core {

// One weekly slot in which runs may (or may not) start, in whole minutes of
// the local wall clock. Built memberwise with no validation.
struct VelmoTimeWindow {
  enum class WindowType { allow, deny };

  // Carried and encoded, never evaluated: a window acts by the list it stands in.
  std::optional<WindowType> type{};
  // An empty set never matches.
  std::set<Weekday> days{};
  // Weeks of the month as the calendar counts them (1 to 6); absent or empty
  // means every week.
  std::optional<std::set<std::int64_t>> weeksOfMonth{};
  // Both bounds inclusive; an end before the start runs over midnight.
  TimeOfDay start{};
  TimeOfDay end{};

  // Whether the window applies on a day given as its calendar weekday
  // (Sunday 1) and week of the month.
  bool appliesOn(int calendarWeekday, std::int64_t weekOfMonth) const;
  // Whether the window holds a moment given as its calendar weekday, week of
  // the month and minute of the day. An over-midnight window
  // holds both halves on its own days: "fri" 22:00-06:00 holds Friday 00:00
  // to 06:00, not Saturday 01:00.
  bool matches(int calendarWeekday, std::int64_t weekOfMonth, std::int64_t minuteOfDay) const;

  // For people: "Mon, Wed 12:00–13:30", with " in weeks 2, 4 of the month" when scoped.
  std::string description() const;

  // A dictionary with "days", "start" and "end", and "type" and
  // "weeksOfMonth" only when present.
  PlistValue toPlist() const;
  // Strict: none for an unknown day or type word, a missing required key or a
  // value of the wrong type anywhere. Keys of no meaning are ignored.
  static std::optional<VelmoTimeWindow> fromPlist(const PlistValue& value);
  static PlistValue toPlistArray(const std::vector<VelmoTimeWindow>& windows);
  // All or nothing: one bad element spoils the whole list.
  static std::optional<std::vector<VelmoTimeWindow>> fromPlistArray(const PlistValue& value);

  // A window list as a preference stores it: either a native array of
  // dictionaries or a data blob holding an encoded property list of one.
  // Anything unreadable, or nothing, gives an empty list, silently; for an
  // allow list that lifts the restriction rather than blocking every run.
  static std::vector<VelmoTimeWindow> fromStoredList(const std::optional<PlistValue>& object);

  bool operator==(const VelmoTimeWindow&) const = default;
};

inline constexpr std::array<VelmoTimeWindow::WindowType, 2> kAllWindowTypes{
    VelmoTimeWindow::WindowType::allow, VelmoTimeWindow::WindowType::deny};

// "allow" and "deny".
std::string_view rawValue(VelmoTimeWindow::WindowType type);
std::optional<VelmoTimeWindow::WindowType> windowTypeFromRawValue(std::string_view raw);

void to_json(nlohmann::json& json, VelmoTimeWindow::WindowType type);
void from_json(const nlohmann::json& json, VelmoTimeWindow::WindowType& type);

// Same keys and rules as the property-list form; a JSON null for an optional
// field counts as absent. Decoding throws nlohmann's exceptions.
void to_json(nlohmann::json& json, const VelmoTimeWindow& window);
void from_json(const nlohmann::json& json, VelmoTimeWindow& window);

}  // namespace velmo::core

// Over all five fields; each optional adds a presence flag, so an absent
// weeksOfMonth and an empty one hash apart, as they compare apart.
template <>
struct std::hash<velmo::core::VelmoTimeWindow> {
  std::size_t operator()(const velmo::core::VelmoTimeWindow& window) const noexcept;
};
