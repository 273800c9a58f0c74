#include "agent/console/WeekPicture.h"

#include <unicode/gregocal.h>
#include <unicode/timezone.h>
#include <unicode/unistr.h>

#include <memory>

namespace velmo::agent::console {
namespace {

constexpr auto kHalfHour = std::chrono::minutes(30);

// Local midnight of the day holding `date` and of the six days after it.
std::vector<platform::TimePoint> midnights(platform::TimePoint date, const std::string& zoneId) {
  UErrorCode status = U_ZERO_ERROR;
  icu::GregorianCalendar calendar(
      icu::TimeZone::createTimeZone(icu::UnicodeString::fromUTF8(zoneId)), status);
  const auto millis = std::chrono::floor<std::chrono::milliseconds>(date).time_since_epoch();
  calendar.setTime(static_cast<UDate>(millis.count()), status);
  calendar.set(UCAL_HOUR_OF_DAY, 0);
  calendar.set(UCAL_MINUTE, 0);
  calendar.set(UCAL_SECOND, 0);
  calendar.set(UCAL_MILLISECOND, 0);
  std::vector<platform::TimePoint> result;
  for (int day = 0; day <= WeekPicture::kDays && U_SUCCESS(status); ++day) {
    const UDate at = calendar.getTime(status);
    result.push_back(platform::TimePoint(std::chrono::duration_cast<platform::Duration>(
        std::chrono::milliseconds(static_cast<std::int64_t>(at)))));
    calendar.add(UCAL_DATE, 1, status);
  }
  if (U_FAILURE(status) || result.size() != WeekPicture::kDays + 1) {
    result.clear();
    const auto start = std::chrono::floor<std::chrono::days>(date);
    for (int day = 0; day <= WeekPicture::kDays; ++day)
      result.push_back(start + std::chrono::days(day));
  }
  return result;
}

std::string dayLabel(platform::TimePoint date, const std::string& zoneId) {
  std::string result = ConsoleText::formatted(date, zoneId, "EEE d MMM");
  while (result.size() < 10) result += ' ';
  return result;
}

}  // namespace

WeekPicture::WeekPicture(const std::optional<core::VelmoWindowPolicy>& policy,
                         platform::TimePoint from, const std::string& timeZoneId)
    : timeZoneId_(timeZoneId) {
  using Kind = core::VelmoWindowPolicy::Verdict::Kind;
  const auto starts = midnights(from, timeZoneId);
  std::vector<core::VelmoWindowPolicy::Stretch> stretches;
  if (policy) stretches = policy->stretches(starts.front(), starts.front() + std::chrono::days(8));
  std::size_t next = 0;
  for (int day = 0; day < kDays; ++day) {
    Day row{starts[static_cast<std::size_t>(day)], {}};
    for (int cell = 0; cell < kCellsPerDay; ++cell) {
      const auto begin = row.midnight + cell * kHalfHour;
      const auto end = begin + kHalfHour;
      if (!policy) {
        row.cells.push_back(Cell::allowed);
        continue;
      }
      while (next < stretches.size() && stretches[next].end <= begin) ++next;
      bool anyAllowed = false;
      bool allAllowed = true;
      bool blackout = false;
      for (std::size_t s = next; s < stretches.size() && stretches[s].start < end; ++s) {
        const auto kind = stretches[s].verdict.kind;
        anyAllowed = anyAllowed || kind == Kind::allowed;
        allAllowed = allAllowed && kind == Kind::allowed;
        blackout = blackout || kind == Kind::blackout;
      }
      row.cells.push_back(blackout     ? Cell::blackout
                          : allAllowed ? Cell::allowed
                          : anyAllowed ? Cell::partly
                                       : Cell::blocked);
    }
    days_.push_back(std::move(row));
  }
}

std::string WeekPicture::render(const ConsoleText& text) const {
  using Colour = ConsoleText::Colour;
  std::string out = std::string(11, ' ');
  for (int hour = 0; hour < 24; hour += 3) {
    std::string label = (hour < 10 ? "0" : "") + std::to_string(hour);
    out += label + std::string(4, ' ');
  }
  out += "\n";
  for (const auto& day : days_) {
    out += dayLabel(day.midnight, timeZoneId_) + " ";
    for (const auto cell : day.cells) {
      switch (cell) {
        case Cell::allowed:
          out += text.paint("\u2588", Colour::green);
          break;
        case Cell::partly:
          out += text.paint("\u258c", Colour::yellow);
          break;
        case Cell::blocked:
          out += text.paint("\u00b7", Colour::dim);
          break;
        case Cell::blackout:
          out += text.paint("\u2592", Colour::red);
          break;
      }
    }
    out += "\n";
  }
  out += std::string(11, ' ') + text.paint("\u2588", Colour::green) + " allowed  " +
         text.paint("\u258c", Colour::yellow) + " partly allowed  " +
         text.paint("\u00b7", Colour::dim) + " outside the allow windows  " +
         text.paint("\u2592", Colour::red) + " blackout  (one cell: 30 minutes)\n";
  return out;
}

nlohmann::json WeekPicture::json() const {
  nlohmann::json rows = nlohmann::json::array();
  for (const auto& day : days_) {
    std::string cells;
    for (const auto cell : day.cells) {
      cells += cell == Cell::allowed   ? 'A'
               : cell == Cell::partly  ? 'p'
               : cell == Cell::blocked ? '.'
                                       : 'B';
    }
    rows.push_back({{"midnight", ConsoleText::isoDate(day.midnight)}, {"cells", cells}});
  }
  return rows;
}

}  // namespace velmo::agent::console
