#include "core/time/VelmoFormatters.h"

#include <unicode/datefmt.h>
#include <unicode/locid.h>
#include <unicode/timezone.h>
#include <unicode/unistr.h>

#include <cstdio>
#include <ctime>
#include <memory>
#include <mutex>

namespace velmo::core {
namespace {

std::tm utcFields(TimePoint date) {
  const std::time_t seconds =
      std::chrono::system_clock::to_time_t(std::chrono::floor<std::chrono::seconds>(date));
  std::tm fields{};
  ::gmtime_r(&seconds, &fields);
  return fields;
}

std::string formatUtc(TimePoint date, const char* pattern) {
  const std::tm fields = utcFields(date);
  char buffer[64];
  const std::size_t length = std::strftime(buffer, sizeof buffer, pattern, &fields);
  return std::string(buffer, length);
}

// ICU formatters are not safe to share between threads, and logging happens
// on any thread: one formatter, guarded.
struct FriendlyFormatter {
  std::mutex mutex;
  std::unique_ptr<icu::DateFormat> format{icu::DateFormat::createDateTimeInstance(
      icu::DateFormat::kMedium, icu::DateFormat::kShort, icu::Locale::getDefault())};
};

}  // namespace

std::string VelmoFormatters::friendlyDate(TimePoint date) {
  static FriendlyFormatter formatter;
  const double millis = std::chrono::duration<double, std::milli>(date.time_since_epoch()).count();
  std::lock_guard lock(formatter.mutex);
  if (!formatter.format) return iso8601(date);
  icu::UnicodeString text;
  formatter.format->format(millis, text);
  std::string result;
  text.toUTF8String(result);
  return result;
}

std::string VelmoFormatters::iso8601(TimePoint date) {
  return formatUtc(date, "%Y-%m-%dT%H:%M:%SZ");
}

std::string VelmoFormatters::iso8601WithMilliseconds(TimePoint date) {
  const auto millis = std::chrono::floor<std::chrono::milliseconds>(date) -
                      std::chrono::floor<std::chrono::seconds>(date);
  char fraction[8];
  std::snprintf(fraction, sizeof fraction, ".%03dZ", static_cast<int>(millis.count()));
  return formatUtc(date, "%Y-%m-%dT%H:%M:%S") + fraction;
}

}  // namespace velmo::core
