#include "agent/maintenance/TempArtifactName.h"

#include <memory>

#include <unicode/locid.h>
#include <unicode/regex.h>
#include <unicode/smpdtfmt.h>
#include <unicode/timezone.h>

namespace velmo::agent::maintenance {
namespace {

// The platform's regular expressions are ICU's, over UTF-16 units: \d is any
// decimal digit, and $ may stand before a final line break.
const icu::RegexPattern* artifactPattern() {
  static const std::unique_ptr<icu::RegexPattern> pattern = [] {
    UErrorCode status = U_ZERO_ERROR;
    UParseError parseError;
    std::unique_ptr<icu::RegexPattern> compiled(icu::RegexPattern::compile(
        UNICODE_STRING_SIMPLE("^\\..+\\.(new|old)-(\\d{8}T\\d{6}Z)-[0-9A-Fa-f]{8}$"), parseError,
        status));
    return U_SUCCESS(status) ? std::move(compiled) : nullptr;
  }();
  return pattern.get();
}

// A strict parse in UTC that must take the whole stamp: 20251399T000000Z is no date.
std::optional<double> parsedMilliseconds(const icu::UnicodeString& stamp) {
  UErrorCode status = U_ZERO_ERROR;
  icu::SimpleDateFormat formatter(UNICODE_STRING_SIMPLE("yyyyMMdd'T'HHmmss'Z'"),
                                  icu::Locale("en_US_POSIX"), status);
  if (U_FAILURE(status)) return std::nullopt;
  formatter.adoptTimeZone(icu::TimeZone::getGMT()->clone());
  formatter.setLenient(false);
  icu::ParsePosition position(0);
  const UDate date = formatter.parse(stamp, position);
  if (position.getErrorIndex() >= 0 || position.getIndex() != stamp.length()) return std::nullopt;
  return date;
}

}  // namespace

std::optional<core::TimeInterval> TempArtifactName::timestamp(std::string_view lastPathComponent) {
  const icu::RegexPattern* pattern = artifactPattern();
  if (!pattern) return std::nullopt;
  const auto text = icu::UnicodeString::fromUTF8(
      icu::StringPiece(lastPathComponent.data(), static_cast<int32_t>(lastPathComponent.size())));
  UErrorCode status = U_ZERO_ERROR;
  std::unique_ptr<icu::RegexMatcher> matcher(pattern->matcher(text, status));
  if (U_FAILURE(status) || !matcher->find(status) || U_FAILURE(status)) return std::nullopt;
  const icu::UnicodeString stamp = matcher->group(2, status);
  if (U_FAILURE(status)) return std::nullopt;
  const auto milliseconds = parsedMilliseconds(stamp);
  if (!milliseconds) return std::nullopt;
  return core::TimeInterval(*milliseconds / 1000.0);
}

}  // namespace velmo::agent::maintenance
