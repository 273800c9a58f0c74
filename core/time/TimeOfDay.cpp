#include "core/time/TimeOfDay.h"

#include <nlohmann/json.hpp>

#include "core/values/DecodedInteger.h"

namespace velmo::core {
namespace {

constexpr std::string_view kHourKey = "hour";
constexpr std::string_view kMinuteKey = "minute";

}  // namespace

std::optional<std::int64_t> TimeOfDay::minuteOfDay() const {
  std::int64_t minutes = 0;
  if (__builtin_mul_overflow(hour, std::int64_t{60}, &minutes)) return std::nullopt;
  if (__builtin_add_overflow(minutes, minute, &minutes)) return std::nullopt;
  return minutes;
}

PlistValue TimeOfDay::toPlist() const {
  PlistDictionary dictionary;
  dictionary.emplace(kHourKey, hour);
  dictionary.emplace(kMinuteKey, minute);
  return dictionary;
}

std::optional<TimeOfDay> TimeOfDay::fromPlist(const PlistValue& value) {
  const auto* dictionary = value.getIf<PlistDictionary>();
  if (!dictionary) return std::nullopt;
  const auto hour = dictionary->find(kHourKey);
  const auto minute = dictionary->find(kMinuteKey);
  if (hour == dictionary->end() || minute == dictionary->end()) return std::nullopt;
  const auto hourValue = decodeInteger(hour->second);
  const auto minuteValue = decodeInteger(minute->second);
  if (!hourValue || !minuteValue) return std::nullopt;
  return TimeOfDay{*hourValue, *minuteValue};
}

void to_json(nlohmann::json& json, const TimeOfDay& time) {
  json = nlohmann::json::object();
  json[kHourKey] = time.hour;
  json[kMinuteKey] = time.minute;
}

void from_json(const nlohmann::json& json, TimeOfDay& time) {
  time = TimeOfDay{decodeInteger(json.at(kHourKey)), decodeInteger(json.at(kMinuteKey))};
}

}  // namespace velmo::core
