#include "core/time/VelmoWindowPolicy.h"

#include <unicode/basictz.h>
#include <unicode/gregocal.h>
#include <unicode/timezone.h>
#include <unicode/tztrans.h>
#include <unicode/unistr.h>

#include <algorithm>
#include <array>
#include <chrono>
#include <cmath>
#include <cstdint>
#include <memory>
#include <optional>
#include <stdexcept>
#include <utility>

namespace velmo::core {
namespace {

using std::chrono::milliseconds;
// ICU counts in milliseconds; so does all arithmetic here.
using Instant = std::chrono::sys_time<milliseconds>;
using WallTime = std::chrono::local_time<milliseconds>;

constexpr milliseconds kSecond{1'000};
constexpr milliseconds kMinute{60'000};
constexpr milliseconds kDay{86'400'000};
constexpr int kMinutesPerDay = 1440;
constexpr int kLastMinute = kMinutesPerDay - 1;

// Beyond these a result has no TimePoint: the calendar "gives no date".
constexpr Instant kEarliest = std::chrono::ceil<milliseconds>(TimePoint::min());
constexpr Instant kLatest = std::chrono::floor<milliseconds>(TimePoint::max());

bool representable(Instant instant) { return instant >= kEarliest && instant <= kLatest; }
TimePoint toTimePoint(Instant instant) { return TimePoint(instant.time_since_epoch()); }
Instant toInstant(TimePoint date) { return std::chrono::floor<milliseconds>(date); }
UDate toUDate(Instant instant) { return static_cast<UDate>(instant.time_since_epoch().count()); }
// None for a value past 64-bit milliseconds, which ICU never gives for a real transition.
std::optional<Instant> fromUDate(UDate date) {
  if (!(std::abs(date) < 9.0e18)) return std::nullopt;
  return Instant(milliseconds(static_cast<std::int64_t>(std::floor(date))));
}

// One moment as the windows see it.
struct Fields {
  int weekday = 0;  // Sunday 1.
  int weekOfMonth = 0;
  int minuteOfDay = 0;
  milliseconds sinceMidnight{};
};

// The time zone and a prototype calendar, never changed after construction.
// ICU allows const use of one zone from several threads; calendars keep a
// cursor, so each caller works on its own clone.
class ZoneCalendar {
 public:
  explicit ZoneCalendar(const std::string& timeZoneId)
      : zone_(icu::TimeZone::createTimeZone(icu::UnicodeString::fromUTF8(timeZoneId))) {
    if (!zone_) throw std::runtime_error("no time zone could be made");
    basicZone_ = dynamic_cast<const icu::BasicTimeZone*>(zone_.get());
    UErrorCode status = U_ZERO_ERROR;
    // The locale only supplies week rules, which are set explicitly next.
    calendar_ = std::make_unique<icu::GregorianCalendar>(*zone_, icu::Locale("en_US"), status);
    if (U_FAILURE(status)) throw std::runtime_error("no Gregorian calendar could be made");
    calendar_->setFirstDayOfWeek(UCAL_SUNDAY);
    calendar_->setMinimalDaysInFirstWeek(1);
  }

  std::unique_ptr<icu::Calendar> newCalendar() const {
    return std::unique_ptr<icu::Calendar>(calendar_->clone());
  }

  // The offset from UTC in force at `instant`.
  milliseconds offset(Instant instant) const {
    std::int32_t raw = 0;
    std::int32_t dst = 0;
    UErrorCode status = U_ZERO_ERROR;
    zone_->getOffset(toUDate(instant), false, raw, dst, status);
    return milliseconds(std::int64_t{raw} + dst);
  }

  // The offset that reads `wall` as before a clock change: a skipped wall
  // time is read with the old offset, a repeated one is taken in its first pass.
  milliseconds offsetBeforeTransition(WallTime wall) const {
    std::int32_t raw = 0;
    std::int32_t dst = 0;
    UErrorCode status = U_ZERO_ERROR;
    const auto local = static_cast<UDate>(wall.time_since_epoch().count());
    if (basicZone_) {
      basicZone_->getOffsetFromLocal(local, UCAL_TZ_LOCAL_FORMER, UCAL_TZ_LOCAL_FORMER, raw, dst,
                                     status);
    } else {
      zone_->getOffset(local, true, raw, dst, status);
    }
    return milliseconds(std::int64_t{raw} + dst);
  }

  // The first clock change strictly after `instant`, if the zone has one.
  std::optional<Instant> nextTransition(Instant instant) const {
    icu::TimeZoneTransition transition;
    if (!basicZone_ || !basicZone_->getNextTransition(toUDate(instant), false, transition)) {
      return std::nullopt;
    }
    return fromUDate(transition.getTime());
  }

  // The last clock change at or before `instant`.
  std::optional<Instant> previousTransition(Instant instant) const {
    icu::TimeZoneTransition transition;
    if (!basicZone_ || !basicZone_->getPreviousTransition(toUDate(instant), true, transition)) {
      return std::nullopt;
    }
    return fromUDate(transition.getTime());
  }

 private:
  std::unique_ptr<icu::TimeZone> zone_;
  const icu::BasicTimeZone* basicZone_ = nullptr;
  std::unique_ptr<icu::Calendar> calendar_;
};

// Inclusive minutes of the day, 0 to 1439.
struct MinuteRange {
  int first = 0;
  int last = 0;
};
// Sorted, disjoint and not touching.
using MinuteRanges = std::vector<MinuteRange>;

// The minutes of the day a window holds on a day it applies to; the wall
// clock gives only minutes 0 to 1439, so its bounds are clipped to those.
void appendMinutes(const VelmoTimeWindow& window, MinuteRanges& ranges) {
  const auto first = window.start.minuteOfDay();
  const auto last = window.end.minuteOfDay();
  if (!first || !last) return;
  const auto add = [&](std::int64_t from, std::int64_t to) {
    from = std::max<std::int64_t>(from, 0);
    to = std::min<std::int64_t>(to, kLastMinute);
    if (from <= to) ranges.push_back({static_cast<int>(from), static_cast<int>(to)});
  };
  if (*last < *first) {
    add(*first, kLastMinute);
    add(0, *last);
  } else {
    add(*first, *last);
  }
}

MinuteRanges merged(MinuteRanges ranges) {
  std::sort(ranges.begin(), ranges.end(),
            [](const MinuteRange& a, const MinuteRange& b) { return a.first < b.first; });
  MinuteRanges result;
  for (const auto& range : ranges) {
    if (!result.empty() && range.first <= result.back().last + 1) {
      result.back().last = std::max(result.back().last, range.last);
    } else {
      result.push_back(range);
    }
  }
  return result;
}

MinuteRanges subtract(const MinuteRanges& from, const MinuteRanges& removed) {
  MinuteRanges result;
  for (auto range : from) {
    for (const auto& cut : removed) {
      if (cut.last < range.first || cut.first > range.last) continue;
      if (cut.first > range.first) result.push_back({range.first, cut.first - 1});
      range.first = cut.last + 1;
      if (range.first > range.last) break;
    }
    if (range.first <= range.last) result.push_back(range);
  }
  return result;
}

std::optional<int> firstIn(const MinuteRanges& ranges, int from, int to) {
  for (const auto& range : ranges) {
    if (range.last < from) continue;
    if (range.first > to) break;
    return std::max(range.first, from);
  }
  return std::nullopt;
}

// The working state of one call: a calendar clone, a cache of allowed minutes
// per kind of day and of the next clock change. Lives on one thread only.
class Judge {
 public:
  Judge(const std::vector<VelmoTimeWindow>& allow, const std::vector<VelmoTimeWindow>& deny,
        const ZoneCalendar& zone)
      : allow_(allow), deny_(deny), zone_(zone), calendar_(zone.newCalendar()) {}

  std::optional<Fields> fields(Instant instant) {
    UErrorCode status = U_ZERO_ERROR;
    calendar_->setTime(toUDate(instant), status);
    Fields fields;
    fields.weekday = calendar_->get(UCAL_DAY_OF_WEEK, status);
    fields.weekOfMonth = calendar_->get(UCAL_WEEK_OF_MONTH, status);
    fields.minuteOfDay =
        calendar_->get(UCAL_HOUR_OF_DAY, status) * 60 + calendar_->get(UCAL_MINUTE, status);
    fields.sinceMidnight = milliseconds(calendar_->get(UCAL_MILLISECONDS_IN_DAY, status));
    if (U_FAILURE(status)) return std::nullopt;
    return fields;
  }

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

  // The verdict of each minute on a day of this weekday and week of the
  // month: the deny window with the lowest index wins, then any allow window.
  const std::vector<VelmoWindowPolicy::Verdict>& verdicts(int weekday, int weekOfMonth) {
    using Kind = VelmoWindowPolicy::Verdict::Kind;
    const bool cacheable = weekday >= 1 && weekday <= 7 && weekOfMonth >= 0 && weekOfMonth <= 6;
    auto& slot = cacheable ? verdictCache_[(weekday - 1) * 7 + weekOfMonth] : uncachedVerdicts_;
    if (slot && cacheable) return *slot;
    std::vector<VelmoWindowPolicy::Verdict> day(
        kMinutesPerDay, {allow_.empty() ? Kind::allowed : Kind::outside, -1});
    const auto paint = [&](const VelmoTimeWindow& window, VelmoWindowPolicy::Verdict verdict,
                           bool onlyOutside) {
      MinuteRanges ranges;
      appendMinutes(window, ranges);
      for (const auto& range : ranges) {
        for (int minute = range.first; minute <= range.last; ++minute) {
          auto& cell = day[static_cast<std::size_t>(minute)];
          if (!onlyOutside || cell.kind == Kind::outside) cell = verdict;
        }
      }
    };
    for (int index = std::ssize(allow_) - 1; index >= 0; --index) {
      VelmoTimeWindow everyWeek = allow_[static_cast<std::size_t>(index)];
      everyWeek.weeksOfMonth.reset();
      if (everyWeek.appliesOn(weekday, weekOfMonth))
        paint(everyWeek, {Kind::otherWeek, index}, true);
    }
    for (const auto& window : allow_) {
      if (window.appliesOn(weekday, weekOfMonth)) paint(window, {Kind::allowed, -1}, false);
    }
    for (int index = std::ssize(deny_) - 1; index >= 0; --index) {
      const auto& window = deny_[static_cast<std::size_t>(index)];
      if (window.appliesOn(weekday, weekOfMonth)) paint(window, {Kind::blackout, index}, false);
    }
    slot = std::move(day);
    return *slot;
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
      const auto& day = verdicts(decomposed->weekday, decomposed->weekOfMonth);
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
      const auto& allowed = allowedMinutes(decomposed->weekday, decomposed->weekOfMonth);
      if (const auto found = firstIn(allowed, decomposed->minuteOfDay, lastMinute)) {
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

  // The allowed minutes on a day of this weekday and week of the month.
  const MinuteRanges& allowedMinutes(int weekday, int weekOfMonth) {
    const bool cacheable = weekday >= 1 && weekday <= 7 && weekOfMonth >= 0 && weekOfMonth <= 6;
    auto& slot = cacheable ? allowedCache_[(weekday - 1) * 7 + weekOfMonth] : uncached_;
    if (!slot || !cacheable) slot = computeAllowedMinutes(weekday, weekOfMonth);
    return *slot;
  }

  MinuteRanges computeAllowedMinutes(int weekday, int weekOfMonth) const {
    MinuteRanges allowed;
    if (allow_.empty()) allowed.push_back({0, kLastMinute});
    for (const auto& window : allow_) {
      if (window.appliesOn(weekday, weekOfMonth)) appendMinutes(window, allowed);
    }
    MinuteRanges denied;
    for (const auto& window : deny_) {
      if (window.appliesOn(weekday, weekOfMonth)) appendMinutes(window, denied);
    }
    return subtract(merged(std::move(allowed)), merged(std::move(denied)));
  }

  const std::vector<VelmoTimeWindow>& allow_;
  const std::vector<VelmoTimeWindow>& deny_;
  const ZoneCalendar& zone_;
  std::unique_ptr<icu::Calendar> calendar_;
  Instant transitionQuery_ = Instant::max();
  Instant nextTransition_ = Instant::min();
  std::array<std::optional<MinuteRanges>, 49> allowedCache_{};
  std::optional<MinuteRanges> uncached_;
  std::array<std::optional<std::vector<VelmoWindowPolicy::Verdict>>, 49> verdictCache_{};
  std::optional<std::vector<VelmoWindowPolicy::Verdict>> uncachedVerdicts_;
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
