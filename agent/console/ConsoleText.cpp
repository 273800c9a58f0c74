#include "agent/console/ConsoleText.h"

#include <unicode/smpdtfmt.h>
#include <unicode/timezone.h>
#include <unicode/unistr.h>

#include <algorithm>
#include <chrono>
#include <memory>
#include <variant>

#include "core/logging/Utf8.h"
#include "core/time/TimeInterval.h"
#include "core/time/VelmoFormatters.h"

namespace velmo::agent::console {
namespace {

// Display width in code points, which is what the cells hold.
std::size_t width(std::string_view text) {
  return static_cast<std::size_t>(
      std::count_if(text.begin(), text.end(), [](char c) { return (c & 0xC0) != 0x80; }));
}

}  // namespace

std::string ConsoleText::paint(std::string_view text, Colour colour) const {
  if (!coloured_ || colour == Colour::none) return std::string(text);
  const char* code = "";
  switch (colour) {
    case Colour::green:
      code = "32";
      break;
    case Colour::yellow:
      code = "33";
      break;
    case Colour::red:
      code = "31";
      break;
    case Colour::dim:
      code = "2";
      break;
    case Colour::bold:
      code = "1";
      break;
    case Colour::none:
      break;
  }
  return std::string("\033[") + code + "m" + std::string(text) + "\033[0m";
}

std::string ConsoleText::localDate(platform::TimePoint date, const std::string& timeZoneId) {
  return formatted(date, timeZoneId, "EEE d MMM yyyy HH:mm");
}

std::string ConsoleText::formatted(platform::TimePoint date, const std::string& timeZoneId,
                                   const char* pattern) {
  // Making a formatter costs far more than using one; a listing uses a few.
  struct Cached {
    std::string zone;
    std::string pattern;
    std::unique_ptr<icu::SimpleDateFormat> format;
  };
  thread_local std::vector<Cached> cache;
  auto found = std::find_if(cache.begin(), cache.end(), [&](const Cached& entry) {
    return entry.zone == timeZoneId && entry.pattern == pattern;
  });
  if (found == cache.end()) {
    UErrorCode status = U_ZERO_ERROR;
    auto format = std::make_unique<icu::SimpleDateFormat>(icu::UnicodeString::fromUTF8(pattern),
                                                          icu::Locale("en_US_POSIX"), status);
    if (U_FAILURE(status)) return core::VelmoFormatters::iso8601(date);
    format->adoptTimeZone(icu::TimeZone::createTimeZone(icu::UnicodeString::fromUTF8(timeZoneId)));
    if (cache.size() >= 8) cache.erase(cache.begin());
    cache.push_back({timeZoneId, pattern, std::move(format)});
    found = cache.end() - 1;
  }
  icu::UnicodeString text;
  found->format->format(std::chrono::duration<double, std::milli>(date.time_since_epoch()).count(),
                        text);
  std::string result;
  text.toUTF8String(result);
  return result;
}

std::string ConsoleText::isoDate(platform::TimePoint date) {
  return core::VelmoFormatters::iso8601WithMilliseconds(date);
}

std::string ConsoleText::relative(platform::TimePoint date, platform::TimePoint now) {
  auto seconds = std::chrono::duration_cast<std::chrono::seconds>(date - now);
  if (seconds.count() == 0) return "now";
  // Beyond a minute, seconds are noise.
  if (std::abs(seconds.count()) >= 60) seconds = seconds / 60 * 60;
  const auto magnitude = core::TimeInterval(static_cast<double>(std::abs(seconds.count())));
  const std::string text = core::durationDescription(magnitude);
  return seconds.count() > 0 ? "in " + text : text + " ago";
}

std::string ConsoleText::window(const core::VelmoTimeWindow& window) {
  return window.description();
}

std::string ConsoleText::value(const core::PlistValue& value) {
  std::string text = plistJSON(value).dump();
  if (width(text) > 40) {
    // Cut on a code point boundary.
    std::size_t end = 0;
    for (std::size_t points = 0; end < text.size() && points < 37; ++end) {
      if ((text[end] & 0xC0) != 0x80) ++points;
    }
    while (end < text.size() && (text[end] & 0xC0) == 0x80) ++end;
    text = text.substr(0, end) + "...";
  }
  return text;
}

nlohmann::json ConsoleText::plistJSON(const core::PlistValue& value) {
  using nlohmann::json;
  struct Visitor {
    json operator()(bool flag) const { return flag; }
    json operator()(std::int64_t number) const { return number; }
    json operator()(double number) const { return number; }
    json operator()(const std::string& text) const {
      // Invalid UTF-8 can't go into JSON as it is.
      return core::isValidUtf8(text) ? json(text) : json(core::escapedControls(text));
    }
    json operator()(const core::PlistDate& date) const { return ConsoleText::isoDate(date.value); }
    json operator()(const core::PlistData& data) const { return {{"bytes", data.size()}}; }
    json operator()(const core::PlistArray& array) const {
      json out = json::array();
      for (const auto& element : array) out.push_back(plistJSON(element));
      return out;
    }
    json operator()(const core::PlistDictionary& dictionary) const {
      json out = json::object();
      for (const auto& [key, element] : dictionary) {
        out[core::isValidUtf8(key) ? key : core::escapedControls(key)] = plistJSON(element);
      }
      return out;
    }
  };
  return std::visit(Visitor{}, value.storage());
}

std::string ConsoleText::reason(const core::VelmoWindowPolicy::Verdict& verdict,
                                const core::VelmoWindowPolicy& policy, bool tuesdayWindow) {
  using Kind = core::VelmoWindowPolicy::Verdict::Kind;
  const auto at = [](const std::vector<core::VelmoTimeWindow>& list, int index) {
    return index >= 0 && index < std::ssize(list) ? window(list[static_cast<std::size_t>(index)])
                                                  : std::string("?");
  };
  switch (verdict.kind) {
    case Kind::allowed:
      return "allowed";
    case Kind::blackout:
      return "inside blackout window " + std::to_string(verdict.window + 1) + " (" +
             at(policy.denyWindows(), verdict.window) + ")";
    case Kind::otherWeek:
      if (tuesdayWindow) return "the Tuesday window opens in calendar week 2 only";
      return "allow window " + std::to_string(verdict.window + 1) + " (" +
             at(policy.allowWindows(), verdict.window) + ") holds other weeks of the month";
    case Kind::outside:
      return tuesdayWindow
                 ? "outside the Tuesday window (Tuesday of calendar week 2, 09:00\u201317:00)"
                 : "outside every allow window";
  }
  return "";
}

std::string ConsoleText::shellCommand(const std::string& tool,
                                      const std::vector<std::string>& words) {
  const auto quoted = [](const std::string& word) {
    const bool plain = !word.empty() && std::all_of(word.begin(), word.end(), [](char c) {
      return std::isalnum(static_cast<unsigned char>(c)) ||
             std::string_view("-_./=:,+@<>").find(c) != std::string_view::npos;
    });
    if (plain && word.find_first_of("<>") == std::string::npos) return word;
    std::string text = "'";
    for (char c : word) text += c == '\'' ? std::string("'\\''") : std::string(1, c);
    return text + "'";
  };
  std::string text = quoted(tool);
  for (const auto& word : words) text += " " + quoted(word);
  return text;
}

std::string ConsoleText::aligned(const std::vector<std::vector<std::string>>& rows,
                                 std::string_view indent) {
  std::vector<std::size_t> widths;
  for (const auto& row : rows) {
    for (std::size_t column = 0; column + 1 < row.size(); ++column) {
      if (widths.size() <= column) widths.resize(column + 1, 0);
      widths[column] = std::max(widths[column], width(row[column]));
    }
  }
  std::string text;
  for (const auto& row : rows) {
    text += indent;
    for (std::size_t column = 0; column < row.size(); ++column) {
      text += row[column];
      if (column + 1 < row.size())
        text += std::string(widths[column] - width(row[column]) + 2, ' ');
    }
    text += "\n";
  }
  return text;
}

}  // namespace velmo::agent::console
