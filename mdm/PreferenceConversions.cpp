#include "mdm/PreferenceConversions.h"

#include <locale.h>
#include <stdlib.h>

#include <charconv>
#include <cmath>
#include <cstdio>
#include <limits>

namespace velmo::mdm {
namespace {

using core::PlistValue;

bool isWhiteSpace(char c) {
  return c == ' ' || c == '\t' || c == '\n' || c == '\r' || c == '\v' || c == '\f';
}

// A double to an integer as the platform's number class does: toward zero,
// clamped to the range; NaN gives zero.
std::int64_t truncated(double value) {
  if (std::isnan(value)) return 0;
  if (value >= 9223372036854775807.0) return std::numeric_limits<std::int64_t>::max();
  if (value <= -9223372036854775808.0) return std::numeric_limits<std::int64_t>::min();
  return static_cast<std::int64_t>(value);
}

// The numeric reading of a value, when it is a number.
std::optional<double> numberAsDouble(const PlistValue& value) {
  if (const auto* b = value.getIf<bool>()) return *b ? 1.0 : 0.0;
  if (const auto* i = value.getIf<std::int64_t>()) return static_cast<double>(*i);
  if (const auto* d = value.getIf<double>()) return *d;
  return std::nullopt;
}

std::optional<std::int64_t> numberAsInteger(const PlistValue& value) {
  if (const auto* b = value.getIf<bool>()) return *b ? 1 : 0;
  if (const auto* i = value.getIf<std::int64_t>()) return *i;
  if (const auto* d = value.getIf<double>()) return truncated(*d);
  return std::nullopt;
}

std::optional<std::string> numberAsString(const PlistValue& value) {
  if (const auto* b = value.getIf<bool>()) return std::string(*b ? "1" : "0");
  if (const auto* i = value.getIf<std::int64_t>()) return std::to_string(*i);
  if (const auto* d = value.getIf<double>()) {
    char buffer[40];
    std::snprintf(buffer, sizeof buffer, "%0.16g", *d);
    return std::string(buffer);
  }
  return std::nullopt;
}

locale_t cLocale() {
  static const locale_t locale = ::newlocale(LC_ALL_MASK, "C", nullptr);
  return locale;
}

}  // namespace

std::optional<std::string> PreferenceConversions::string(const PlistValue& value) {
  if (const auto* text = value.getIf<std::string>()) return *text;
  return numberAsString(value);
}

std::optional<bool> PreferenceConversions::boolean(const PlistValue& value) {
  if (const auto* text = value.getIf<std::string>()) return stringBoolValue(*text);
  if (const auto* b = value.getIf<bool>()) return *b;
  if (const auto* i = value.getIf<std::int64_t>()) return *i != 0;
  if (const auto* d = value.getIf<double>()) return *d != 0.0;
  return std::nullopt;
}

std::optional<std::int64_t> PreferenceConversions::integer(const PlistValue& value) {
  if (const auto* text = value.getIf<std::string>()) return strictInteger(*text);
  return numberAsInteger(value);
}

std::optional<double> PreferenceConversions::real(const PlistValue& value) {
  if (const auto* text = value.getIf<std::string>()) {
    if (text->empty() || isWhiteSpace(text->front())) return std::nullopt;
    char* end = nullptr;
    const double parsed = ::strtod_l(text->c_str(), &end, cLocale());
    if (end != text->c_str() + text->size()) return std::nullopt;
    return parsed;
  }
  return numberAsDouble(value);
}

std::optional<std::map<std::string, std::int64_t>> PreferenceConversions::stringIntDictionary(
    const PlistValue& value) {
  const auto* dictionary = value.getIf<core::PlistDictionary>();
  if (!dictionary) return std::nullopt;
  std::map<std::string, std::int64_t> result;
  for (const auto& [key, entry] : *dictionary) {
    if (auto number = integer(entry)) result.emplace(key, *number);
  }
  return result;
}

std::optional<std::vector<std::string>> PreferenceConversions::stringArray(
    const PlistValue& value) {
  const auto* array = value.getIf<core::PlistArray>();
  if (!array) return std::nullopt;
  std::vector<std::string> result;
  for (const auto& element : *array) {
    if (auto text = string(element)) result.push_back(std::move(*text));
  }
  return result;
}

bool PreferenceConversions::boolForKey(const platform::UserDefaults& defaults,
                                       std::string_view key) {
  const auto stored = defaults.object(key);
  return stored && boolean(*stored).value_or(false);
}

bool PreferenceConversions::stringBoolValue(std::string_view text) {
  std::size_t at = 0;
  while (at < text.size() && isWhiteSpace(text[at])) ++at;
  if (at == text.size()) return false;
  const char first = text[at];
  if (first == 'Y' || first == 'y' || first == 'T' || first == 't') return true;
  if (first == '+' || first == '-') ++at;
  while (at < text.size() && text[at] == '0') ++at;
  return at < text.size() && text[at] >= '1' && text[at] <= '9';
}

std::optional<std::int64_t> PreferenceConversions::strictInteger(std::string_view text) {
  if (!text.empty() && text.front() == '+') {
    text.remove_prefix(1);
    if (!text.empty() && text.front() == '-') return std::nullopt;  // One sign only.
  }
  if (text.empty()) return std::nullopt;
  std::int64_t value = 0;
  const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), value);
  if (error != std::errc() || end != text.data() + text.size()) return std::nullopt;
  return value;
}

}  // namespace velmo::mdm
