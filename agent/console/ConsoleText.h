#pragma once

#include <string>
#include <string_view>
#include <vector>

#include <nlohmann/json.hpp>

#include "core/time/VelmoTimeWindow.h"
#include "core/time/VelmoWindowPolicy.h"
#include "core/values/PlistValue.h"
#include "platform/Clock.h"

namespace velmo::agent::console {

// How the console writes dates, windows, values and colour.
class ConsoleText {
 public:
  enum class Colour { none, green, yellow, red, dim, bold };

  // `coloured` only when the output is a terminal.
  explicit ConsoleText(bool coloured) : coloured_(coloured) {}

  std::string paint(std::string_view text, Colour colour) const;

  // "Tue 24 Nov 2026 06:00" in the zone.
  static std::string localDate(platform::TimePoint date, const std::string& timeZoneId);
  // `date` by an ICU pattern in the zone.
  static std::string formatted(platform::TimePoint date, const std::string& timeZoneId,
                               const char* pattern);
  // UTC with milliseconds, for JSON: "2026-11-24T06:00:00.000Z".
  static std::string isoDate(platform::TimePoint date);
  // "in 2 hours 3 minutes", "5 minutes ago", "now".
  static std::string relative(platform::TimePoint date, platform::TimePoint now);
  // "Mon, Wed 12:00–13:30", with " in weeks 2, 4 of the month" when scoped.
  static std::string window(const core::VelmoTimeWindow& window);
  // A preference value as JSON: dates as ISO 8601, data as its size.
  static nlohmann::json plistJSON(const core::PlistValue& value);
  // A property-list value on one line, as JSON, cut at 40 characters.
  static std::string value(const core::PlistValue& value);
  // Why a moment is blocked, in the administrator's words.
  static std::string reason(const core::VelmoWindowPolicy::Verdict& verdict,
                            const core::VelmoWindowPolicy& policy, bool tuesdayWindow);
  // The command as a shell would take it, each word quoted when it needs to be.
  static std::string shellCommand(const std::string& tool, const std::vector<std::string>& words);
  // Rows of columns, padded to the widest cell of each column but the last.
  static std::string aligned(const std::vector<std::vector<std::string>>& rows,
                             std::string_view indent);

 private:
  bool coloured_;
};

}  // namespace velmo::agent::console
