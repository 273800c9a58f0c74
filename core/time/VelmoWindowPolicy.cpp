#include "core/time/VelmoWindowPolicy.h"

#include <unicode/timezone.h>
#include <unicode/unistr.h>

#include <algorithm>
#include <chrono>
#include <cstdint>
#include <memory>
#include <optional>
#include <utility>

#include "core/time/DayWindows.h"
#include "core/time/ZoneCalendar.h"

namespace velmo::core {
namespace {

using std::chrono::milliseconds;
using Instant = ZoneCalendar::Instant;
using WallTime = ZoneCalendar::WallTime;
using Fields = ZoneCalendar::Fields;

constexpr milliseconds kSecond{1'000};
constexpr milliseconds kMinute{60'000};
constexpr milliseconds kDay{86'400'000};
constexpr int kMinutesPerDay = DayWindows::kMinutesPerDay;

// Beyond these a result has no TimePoint: the calendar "gives no date".
constexpr Instant kEarliest = std::chrono::ceil<milliseconds>(TimePoint::min());
constexpr Instant kLatest = std::chrono::floor<milliseconds>(TimePoint::max());

bool representable(Instant instant) { return instant >= kEarliest && instant <= kLatest; }
TimePoint toTimePoint(Instant instant) { return TimePoint(instant.time_since_epoch()); }
Instant toInstant(TimePoint date) { return std::chrono::floor<milliseconds>(date); }

// The working state of one call: a calendar clone, a cache of allowed minutes
// per kind of day and of the next clock change. Lives on one thread only.
class Judge {
 public:
  Judge(const std::vector<VelmoTimeWindow>& allow, const std::vector<VelmoTimeWindow>& deny,
        const ZoneCalendar& zone)
      : allow_(allow), deny_(deny), zone_(zone), cursor_(zone.cursor()), days_(allow, deny) {}

  std::optional<Fields> fields(Instant instant) { return cursor_.fields(instant); }

  bool isAllowed(const Fields& fields) const {
    const auto holds = [&](const VelmoTimeWindow& window) {
      return window.matches(fields.weekday, fields.weekOfMonth, fields.minuteOfDay);
    };
    if (std::any_of(deny_.begin(), deny_.end(), holds)) return false;
    return allow_.empty() || std::any_of(allow_.begin(), allow_.end(), holds);
  }

  // A moment the calendar can't place is in no window.
  bool isAllowed(Instant instant) {
    const auto decomposed = fields(instant);
    return decomposed && isAllowed(*decomposed);
  }

  // `days` calendar days later at the same wall-clock time. Across a clock
  // change that is not a multiple of 24 hours; when that wall time is skipped
  // the unadjusted moment stands, an hour later on the clock. Which pass of a
  // repeated hour results doesn't matter: callers use only the day.
  std::optional<Instant> addingDays(int days, Instant instant) const {
    if (days == 0) return instant;
    const Instant moved = instant + kDay * days;
    if (!representable(moved)) return std::nullopt;
    const milliseconds before = zone_.offset(instant);
    const milliseconds after = zone_.offset(moved);
    if (before == after) return moved;
    const Instant adjusted = moved + (before - after);
    if (representable(adjusted) && zone_.offset(adjusted) == after) return adjusted;
    return moved;
  }

  // The first moment of the calendar day holding `instant`: local midnight
  // read as before any clock change, then back second by second while still
  // on the same day. So a skipped midnight gives the first moment that
  // exists, a repeated one the first pass.
  std::optional<Instant> startOfDay(Instant instant) const {
    const auto wallOf = [&](Instant moment, milliseconds offset) {
      return WallTime(moment.time_since_epoch() + offset);
    };
    const auto day = std::chrono::floor<std::chrono::days>(wallOf(instant, zone_.offset(instant)));
    const WallTime midnight = day;
    Instant start(midnight.time_since_epoch() - zone_.offsetBeforeTransition(midnight));
    // Each pass skips a whole stretch of one offset; a day has only a few.
    for (int pass = 0; pass < 16; ++pass) {
      const Instant previous = start - kSecond;
      const milliseconds offset = zone_.offset(previous);
      if (std::chrono::floor<std::chrono::days>(wallOf(previous, offset)) != day) break;
      Instant earliest(midnight.time_since_epoch() - offset);
      if (const auto change = zone_.previousTransition(previous)) {
        earliest = std::max(earliest, *change);
      }
      start -= std::max<std::int64_t>(1, (start - earliest) / kSecond) * kSecond;
    }
    if (!representable(start)) return std::nullopt;
    return start;
  }

  // Stretches of one verdict from `from` to `to`, walking spans of one UTC
  // offset and one wall-clock date, in which the minute of the day rises by
  // one per minute.
  std::vector<VelmoWindowPolicy::Stretch> stretches(TimePoint from, TimePoint to) {
    std::vector<VelmoWindowPolicy::Stretch> result;
    const auto add = [&](TimePoint start, TimePoint end, VelmoWindowPolicy::Verdict verdict) {
      start = std::max(start, from);
      end = std::min(end, to);
      if (start >= end) return;
      if (!result.empty() && result.back().verdict == verdict && result.back().end == start) {
        result.back().end = end;
      } else {
        result.push_back({start, end, verdict});
      }
    };
    if (from >= to) return result;
    Instant moment = toInstant(from);
    const Instant last = std::chrono::ceil<milliseconds>(to);
    while (moment < last) {
      const auto decomposed = fields(moment);
      if (!decomposed) {
        add(toTimePoint(moment), toTimePoint(moment + kMinute),
            {VelmoWindowPolicy::Verdict::Kind::outside, -1});
        moment += kMinute;
        continue;
      }
      const Instant spanEnd =
          std::min({nextTransition(moment), moment + (kDay - decomposed->sinceMidnight), last});
      const auto& day = days_.verdicts(decomposed->weekday, decomposed->weekOfMonth);
      // A clock change need not fall on a whole minute; the wall clock's minutes do.
      Instant boundary = moment + (kMinute - decomposed->sinceMidnight % kMinute);
      Instant start = moment;
      for (int minute = decomposed->minuteOfDay; start < spanEnd && minute < kMinutesPerDay;
           ++minute) {
        const Instant end = std::min(boundary, spanEnd);
        add(toTimePoint(start), toTimePoint(end), day[static_cast<std::size_t>(minute)]);
        start = end;
        boundary += kMinute;
      }
      moment = start > moment ? start : moment + kMinute;
    }
    return result;
  }

  // The first allowed candidate of the day starting at `dayStart` that isn't
  // before `after`, judging each candidate minute.
  std::optional<TimePoint> firstAllowedByScan(Instant dayStart, TimePoint after) {
    for (int minute = 0; minute < kMinutesPerDay; ++minute) {
      const Instant candidate = dayStart + minute * kMinute;
      if (!representable(candidate)) continue;
      if (toTimePoint(candidate) < after) continue;
      if (isAllowed(candidate)) return toTimePoint(candidate);
    }
    return std::nullopt;
  }

  // The same answer from the windows' boundaries. The candidates split into
  // stretches with one UTC offset and one wall-clock date; inside one, the
  // candidate's minute of the day rises by one per candidate, so the first
  // allowed one is the first allowed minute in that stretch's span.
  std::optional<TimePoint> firstAllowed(Instant dayStart, TimePoint after) {
    std::int64_t minute = 0;
    const TimePoint start = toTimePoint(dayStart);
    if (after > start) minute = std::chrono::ceil<std::chrono::minutes>(after - start).count();
    while (minute < kMinutesPerDay) {
      const Instant candidate = dayStart + minute * kMinute;
      if (!representable(candidate)) return std::nullopt;
      const auto decomposed = fields(candidate);
      if (!decomposed) {
        ++minute;
        continue;
      }
      const Instant stretchEnd =
          std::min(nextTransition(candidate), candidate + (kDay - decomposed->sinceMidnight));
      const std::int64_t count = std::min<std::int64_t>(
          kMinutesPerDay - minute,
          std::chrono::ceil<std::chrono::minutes>(stretchEnd - candidate).count());
      const int lastMinute = decomposed->minuteOfDay + static_cast<int>(count) - 1;
      if (const auto found = days_.firstAllowed(decomposed->weekday, decomposed->weekOfMonth,
                                                decomposed->minuteOfDay, lastMinute)) {
        const Instant result = candidate + (*found - decomposed->minuteOfDay) * kMinute;
        if (!representable(result)) return std::nullopt;
        return toTimePoint(result);
      }
      minute += count;
    }
    return std::nullopt;
  }

 private:
  // Memoised: no clock change lies strictly between transitionQuery_ and
  // nextTransition_, so every instant in that span shares the answer.
  Instant nextTransition(Instant instant) {
    if (!(transitionQuery_ <= instant && instant < nextTransition_)) {
      transitionQuery_ = instant;
      nextTransition_ = zone_.nextTransition(instant).value_or(Instant::max());
    }
    return nextTransition_;
  }

  const std::vector<VelmoTimeWindow>& allow_;
  const std::vector<VelmoTimeWindow>& deny_;
  const ZoneCalendar& zone_;
  ZoneCalendar::Cursor cursor_;
  DayWindows days_;
  Instant transitionQuery_ = Instant::max();
  Instant nextTransition_ = Instant::min();
};

// The day walk both searches share; `firstInDay` looks at one day's candidates.
template <typename FirstInDay>
TimePoint search(Judge& judge, TimePoint after, int searchDays, FirstInDay firstInDay) {
  const Instant from = toInstant(after);
  if (judge.isAllowed(from)) return after;
  for (int offset = 0; offset < searchDays; ++offset) {
    const auto day = judge.addingDays(offset, from);
    // Later days lie further out still.
    if (!day) break;
    const auto dayStart = judge.startOfDay(*day);
    if (!dayStart) continue;
    if (const auto found = firstInDay(*dayStart)) return *found;
  }
  return after;
}

}  // namespace

class VelmoWindowPolicy::Calendar : public ZoneCalendar {
 public:
  using ZoneCalendar::ZoneCalendar;
};

VelmoWindowPolicy::VelmoWindowPolicy(std::vector<VelmoTimeWindow> allow,
                                     std::vector<VelmoTimeWindow> deny, std::string timeZoneId)
    : allowWindows_(std::move(allow)),
      denyWindows_(std::move(deny)),
      timeZoneId_(std::move(timeZoneId)),
      calendar_(std::make_shared<const Calendar>(timeZoneId_)) {}

bool VelmoWindowPolicy::usesMonthScopedWindows() const {
  const auto scoped = [](const VelmoTimeWindow& window) {
    return window.weeksOfMonth && !window.weeksOfMonth->empty();
  };
  return std::any_of(allowWindows_.begin(), allowWindows_.end(), scoped) ||
         std::any_of(denyWindows_.begin(), denyWindows_.end(), scoped);
}

bool VelmoWindowPolicy::isWithinAllowedWindow(TimePoint date) const {
  Judge judge(allowWindows_, denyWindows_, *calendar_);
  return judge.isAllowed(toInstant(date));
}

TimePoint VelmoWindowPolicy::nextAllowedRunDate(TimePoint after, int searchDays) const {
  Judge judge(allowWindows_, denyWindows_, *calendar_);
  return search(judge, after, searchDays,
                [&](Instant dayStart) { return judge.firstAllowed(dayStart, after); });
}

std::vector<VelmoWindowPolicy::Stretch> VelmoWindowPolicy::stretches(TimePoint from,
                                                                     TimePoint to) const {
  Judge judge(allowWindows_, denyWindows_, *calendar_);
  return judge.stretches(from, to);
}

TimePoint VelmoWindowPolicy::nextAllowedRunDateByScan(TimePoint after, int searchDays) const {
  Judge judge(allowWindows_, denyWindows_, *calendar_);
  return search(judge, after, searchDays,
                [&](Instant dayStart) { return judge.firstAllowedByScan(dayStart, after); });
}

VelmoTimeWindow VelmoWindowPolicy::tuesdayWindow() {
  VelmoTimeWindow window;
  window.type = VelmoTimeWindow::WindowType::allow;
  window.days = {Weekday::tue};
  window.weeksOfMonth = std::set<std::int64_t>{2};
  window.start = TimeOfDay{9, 0};
  window.end = TimeOfDay{17, 0};
  return window;
}

std::string VelmoWindowPolicy::currentTimeZoneId() {
  // Asked afresh each time: ICU's default zone is fixed once read.
  std::unique_ptr<icu::TimeZone> zone(icu::TimeZone::detectHostTimeZone());
  icu::UnicodeString id;
  if (zone) zone->getID(id);
  std::string result;
  id.toUTF8String(result);
  return result.empty() ? std::string("UTC") : result;
}

}  // namespace velmo::core
