#include "core/time/VelmoWindowPolicy.h"

#include <gtest/gtest.h>

#include <cstdlib>
#include <limits>
#include <tuple>

#include "core/time/Iso8601DateFormatter.h"

namespace velmo::core {
namespace {

TimePoint at(std::string_view text) {
  const auto date = Iso8601DateFormatter::date(text);
  EXPECT_TRUE(date) << text;
  return date.value_or(TimePoint());
}

VelmoTimeWindow window(std::set<Weekday> days, TimeOfDay start, TimeOfDay end,
                       std::optional<std::set<std::int64_t>> weeks = std::nullopt) {
  return {std::nullopt, std::move(days), std::move(weeks), start, end};
}

std::optional<std::set<std::int64_t>> weeks(std::initializer_list<std::int64_t> values) {
  return std::set<std::int64_t>(values);
}

const std::set<Weekday> kEveryDay(kAllWeekdays.begin(), kAllWeekdays.end());
constexpr auto kHuge = std::numeric_limits<std::int64_t>::max();

VelmoWindowPolicy allowing(VelmoTimeWindow allow, const char* zone = "UTC") {
  return VelmoWindowPolicy({std::move(allow)}, {}, zone);
}

const auto kTuesday = allowing(VelmoWindowPolicy::tuesdayWindow());
const auto kFridayNight = allowing(window({Weekday::fri}, {22, 0}, {6, 0}));
const auto kWorkingHoursDenied = VelmoWindowPolicy(
    {},
    {window({Weekday::mon, Weekday::tue, Weekday::wed, Weekday::thu, Weekday::fri}, {9, 0},
            {17, 0})},
    "UTC");
// Allowed all day, except Tuesday 12:00-13:00; each window's type says the opposite of its list.
const auto kDenyBeatsAllow = [] {
  auto allow = window(kEveryDay, {0, 0}, {23, 59});
  allow.type = VelmoTimeWindow::WindowType::deny;
  auto deny = window({Weekday::tue}, {12, 0}, {13, 0});
  deny.type = VelmoTimeWindow::WindowType::allow;
  return VelmoWindowPolicy({allow}, {deny}, "UTC");
}();

struct MomentCase {
  const char* name;
  VelmoWindowPolicy policy;
  const char* moment;
  bool allowed;
};

class Moment : public ::testing::TestWithParam<MomentCase> {};

TEST_P(Moment, IsJudgedByMinuteOfTheLocalWallClock) {
  EXPECT_EQ(GetParam().policy.isWithinAllowedWindow(at(GetParam().moment)), GetParam().allowed);
}

INSTANTIATE_TEST_SUITE_P(
    Cases, Moment,
    ::testing::Values(
        MomentCase{"TuesdayStart", kTuesday, "2026-03-10T09:00:00Z", true},
        MomentCase{"TuesdayLastMinute", kTuesday, "2026-03-10T17:00:59Z", true},
        MomentCase{"TuesdayEarly", kTuesday, "2026-03-10T08:59:59Z", false},
        MomentCase{"TuesdayLate", kTuesday, "2026-03-10T17:01:00Z", false},
        MomentCase{"TuesdayAprilWeek2", kTuesday, "2026-04-07T12:00:00Z", true},
        MomentCase{"TuesdayAprilWeek3", kTuesday, "2026-04-14T12:00:00Z", false},
        MomentCase{"TuesdayBerlinWallClock",
                   allowing(VelmoWindowPolicy::tuesdayWindow(), "Europe/Berlin"),
                   "2026-03-10T08:30:00Z", true},
        MomentCase{"TuesdayBerlinAfterHours",
                   allowing(VelmoWindowPolicy::tuesdayWindow(), "Europe/Berlin"),
                   "2026-03-10T16:30:00Z", false},
        MomentCase{"BerlinWeekdayIsLocal",
                   allowing(window({Weekday::tue}, {0, 0}, {0, 30}), "Europe/Berlin"),
                   "2026-03-09T23:30:00Z", true},
        MomentCase{"FridayLateHalf", kFridayNight, "2026-03-13T23:00:00Z", true},
        MomentCase{"FridayEnd", kFridayNight, "2026-03-13T06:00:00Z", true},
        MomentCase{"FridayPastEnd", kFridayNight, "2026-03-13T06:01:00Z", false},
        MomentCase{"SaturdayEarly", kFridayNight, "2026-03-14T01:00:00Z", false},
        MomentCase{"ThursdayLate", kFridayNight, "2026-03-12T23:00:00Z", false},
        MomentCase{"AllowListDespiteType", kDenyBeatsAllow, "2026-03-10T11:59:00Z", true},
        MomentCase{"DenyListDespiteType", kDenyBeatsAllow, "2026-03-10T12:15:00Z", false},
        MomentCase{"NoWindows", VelmoWindowPolicy({}, {}, "UTC"), "2026-03-10T12:15:00Z", true},
        MomentCase{"EndAt24", allowing(window(kEveryDay, {23, 0}, {24, 0})), "2026-03-10T23:59:30Z",
                   true},
        MomentCase{"StartAt25", allowing(window(kEveryDay, {25, 0}, {26, 0})),
                   "2026-03-10T01:00:00Z", false},
        MomentCase{"MinutesPastTheHour", allowing(window(kEveryDay, {9, 75}, {9, 75})),
                   "2026-03-10T10:15:00Z", true},
        MomentCase{"WeekZero", allowing(window(kEveryDay, {0, 0}, {23, 59}, weeks({0}))),
                   "2026-03-01T12:00:00Z", false},
        MomentCase{"WeekSeven", allowing(window(kEveryDay, {0, 0}, {23, 59}, weeks({7}))),
                   "2026-05-31T12:00:00Z", false},
        MomentCase{"EmptyWeeksIsEveryWeek",
                   allowing(window(kEveryDay, {0, 0}, {23, 59}, weeks({}))), "2026-05-31T12:00:00Z",
                   true},
        MomentCase{"OverflowingStart", allowing(window(kEveryDay, {kHuge, 0}, {23, 59})),
                   "2026-03-10T12:00:00Z", false},
        MomentCase{"OverflowingEnd", allowing(window(kEveryDay, {0, 0}, {kHuge, 0})),
                   "2026-03-10T12:00:00Z", false},
        MomentCase{"EmptyDays", allowing(window({}, {0, 0}, {23, 59})), "2026-03-10T12:00:00Z",
                   false},
        MomentCase{"UnknownZoneIsUtc", allowing(window({Weekday::tue}, {9, 0}, {9, 0}), "Mars/X"),
                   "2026-03-10T09:00:30Z", true},
        // Never reached by a search (see below), but judged like any other moment.
        MomentCase{"LastHourOfA25HourDay",
                   allowing(window({Weekday::sun}, {23, 0}, {23, 59}), "America/New_York"),
                   "2026-11-01T23:30:00-05:00", true}),
    [](const auto& info) { return std::string(info.param.name); });

struct SearchCase {
  const char* name;
  VelmoWindowPolicy policy;
  const char* after;
  int searchDays;
  const char* expected;  // Null: nothing found, so `after` itself.
};

class Search : public ::testing::TestWithParam<SearchCase> {};

TEST_P(Search, FindsTheFirstAllowedCandidateBothWays) {
  const auto& param = GetParam();
  const auto after = at(param.after);
  const auto expected = param.expected ? at(param.expected) : after;
  EXPECT_EQ(param.policy.nextAllowedRunDate(after, param.searchDays), expected);
  EXPECT_EQ(param.policy.nextAllowedRunDateByScan(after, param.searchDays), expected);
}

const auto kMondayFirstHour = window({Weekday::mon}, {0, 0}, {0, 59});
const auto kAllDaySunday = window({Weekday::sun}, {0, 0}, {23, 59});
const auto kSundayLastHour = window({Weekday::sun}, {23, 0}, {23, 59});

INSTANTIATE_TEST_SUITE_P(
    Cases, Search,
    ::testing::Values(
        SearchCase{"TuesdayLongHorizon", kTuesday, "2026-03-11T10:00:00Z", 60,
                   "2026-04-07T09:00:00Z"},
        SearchCase{"TuesdayThreeWeeks", kTuesday, "2026-03-11T10:00:00Z", 21, nullptr},
        // 17:00 is still denied; the seconds of `after` don't move the grid.
        SearchCase{"DeniedUntil1701", kWorkingHoursDenied, "2026-03-09T10:30:20Z", 14,
                   "2026-03-09T17:01:00Z"},
        SearchCase{"NotDeniedKeepsSeconds", kWorkingHoursDenied, "2026-03-09T18:15:42Z", 14,
                   nullptr},
        SearchCase{"FridayNightFromSaturday", kFridayNight, "2026-03-14T01:00:00Z", 14,
                   "2026-03-20T00:00:00Z"},
        SearchCase{"DenyEndsInsideAllow", kDenyBeatsAllow, "2026-03-10T12:15:00Z", 1,
                   "2026-03-10T13:01:00Z"},
        SearchCase{"NothingEverAllowed", allowing(window({}, {0, 0}, {23, 59})),
                   "2026-03-10T12:00:00Z", 60, nullptr},
        // The first moment of a day whose midnight is skipped, or repeated.
        SearchCase{"SaoPauloDayStart", allowing(kAllDaySunday, "America/Sao_Paulo"),
                   "2018-11-03T12:00:00-03:00", 3, "2018-11-04T01:00:00-02:00"},
        SearchCase{"BeirutAutumnDayStart", allowing(kAllDaySunday, "Asia/Beirut"),
                   "2025-10-25T12:00:00+03:00", 3, "2025-10-26T00:00:00+02:00"},
        SearchCase{"HavanaDayStart", allowing(kAllDaySunday, "America/Havana"),
                   "2025-11-01T12:00:00-04:00", 3, "2025-11-02T00:00:00-04:00"},
        // A day later is Sunday 00:30, a skipped wall time: still Sunday, not Saturday 23:30.
        SearchCase{"SaoPauloNextDayAtASkippedTime", allowing(kAllDaySunday, "America/Sao_Paulo"),
                   "2018-11-03T00:30:00-03:00", 2, "2018-11-04T01:00:00-02:00"},
        // A day's 1,440 candidates are elapsed minutes from its first moment:
        // a short Sunday reaches into Monday, a 25-hour one never shows its last hour.
        SearchCase{"NewYork23HourDay", allowing(kMondayFirstHour, "America/New_York"),
                   "2026-03-07T12:00:00-05:00", 2, "2026-03-09T00:00:00-04:00"},
        SearchCase{"NewYork24HourDay", allowing(kMondayFirstHour, "America/New_York"),
                   "2026-03-14T12:00:00-04:00", 2, nullptr},
        SearchCase{"SaoPaulo23HourDay", allowing(kMondayFirstHour, "America/Sao_Paulo"),
                   "2018-11-03T12:00:00-03:00", 2, "2018-11-05T00:00:00-02:00"},
        SearchCase{"LordHoweHalfHourShorter",
                   allowing(window({Weekday::mon}, {0, 0}, {0, 29}), "Australia/Lord_Howe"),
                   "2026-10-03T12:00:00+10:30", 2, "2026-10-05T00:00:00+11:00"},
        SearchCase{"NewYork25HourDay", allowing(kSundayLastHour, "America/New_York"),
                   "2026-10-31T12:00:00-04:00", 2, nullptr},
        SearchCase{"NewYork24HourSunday", allowing(kSundayLastHour, "America/New_York"),
                   "2026-01-31T12:00:00-05:00", 2, "2026-02-01T23:00:00-05:00"},
        SearchCase{"Havana25HourDay", allowing(kSundayLastHour, "America/Havana"),
                   "2025-11-01T12:00:00-04:00", 2, nullptr},
        // Toronto 1919-03-30 23:30 EST jumped to 00:30 EDT: Monday starts at
        // 00:30, so its candidates end at Tuesday 00:29.
        SearchCase{"TorontoGapOverMidnight",
                   allowing(window({Weekday::tue}, {0, 30}, {0, 59}), "America/Toronto"),
                   "1919-03-31T12:00:00-04:00", 1, nullptr},
        SearchCase{"TorontoCandidatesFromTheGapsEnd",
                   allowing(window({Weekday::mon}, {12, 0}, {12, 0}), "America/Toronto"),
                   "1919-03-31T01:00:00-04:00", 1, "1919-03-31T12:00:00-04:00"},
        SearchCase{"TorontoNextDay",
                   allowing(window({Weekday::tue}, {0, 30}, {0, 59}), "America/Toronto"),
                   "1919-03-31T12:00:00-04:00", 2, "1919-04-01T00:30:00-04:00"},
        // A day later is the same wall-clock time, not 24 hours later.
        SearchCase{"AddDayOverSpringChange",
                   allowing(window({Weekday::sun}, {12, 0}, {12, 0}), "America/New_York"),
                   "2026-03-07T23:30:00-05:00", 2, "2026-03-08T12:00:00-04:00"},
        SearchCase{"AddDaysOverAutumnChange",
                   allowing(window({Weekday::mon}, {12, 0}, {12, 0}), "America/New_York"),
                   "2026-10-31T00:30:00-04:00", 3, "2026-11-02T12:00:00-05:00"},
        // Berlin skips 02:00-02:59 on Sunday 2026-03-29, in week 5 of March: the
        // scan judges every minute of that day, and none matches.
        SearchCase{"WindowInSkippedHour",
                   allowing(window({Weekday::sun}, {2, 0}, {2, 59}, weeks({5})), "Europe/Berlin"),
                   "2026-03-28T12:00:00+01:00", 7, nullptr},
        SearchCase{"SkippedHourNextMonth",
                   allowing(window({Weekday::sun}, {2, 0}, {2, 59}, weeks({5})), "Europe/Berlin"),
                   "2026-03-28T12:00:00+01:00", 30, "2026-04-26T02:00:00+02:00"}),
    [](const auto& info) { return std::string(info.param.name); });

TEST(VelmoWindowPolicy, ExtremeArgumentsGiveAnAnswer) {
  const auto policy = allowing(window({Weekday::sat}, {3, 0}, {3, 0}), "Asia/Beirut");
  for (const auto moment :
       {TimePoint::min(), TimePoint::max(), TimePoint::max() - std::chrono::hours(30)}) {
    const auto fast = policy.nextAllowedRunDate(moment, 60);
    EXPECT_EQ(fast, policy.nextAllowedRunDateByScan(moment, 60));
    EXPECT_GE(fast, moment);
  }
  // The last day a TimePoint reaches, 2262-04-11, is still searched.
  EXPECT_EQ(allowing(window({Weekday::fri}, {0, 0}, {0, 0}))
                .nextAllowedRunDate(TimePoint::max() - std::chrono::hours(24), 2),
            TimePoint(std::chrono::sys_days(std::chrono::year(2262) / 4 / 11)));
  const auto now = at("2026-03-10T12:00:00Z");
  EXPECT_EQ(policy.nextAllowedRunDate(now, 0), now);
  EXPECT_EQ(policy.nextAllowedRunDate(now, -5), now);
}

// A verdict's minutes make one stretch; a blackout names its window.
TEST(VelmoWindowPolicy, StretchesJoinTheMinutesOfOneVerdict) {
  using Kind = VelmoWindowPolicy::Verdict::Kind;
  using Row = std::tuple<TimePoint, TimePoint, Kind, int>;
  std::vector<Row> rows;
  for (const auto& stretch :
       kWorkingHoursDenied.stretches(at("2026-03-09T08:30:00Z"), at("2026-03-09T17:30:00Z"))) {
    rows.emplace_back(stretch.start, stretch.end, stretch.verdict.kind, stretch.verdict.window);
  }
  EXPECT_EQ(rows,
            (std::vector<Row>{
                {at("2026-03-09T08:30:00Z"), at("2026-03-09T09:00:00Z"), Kind::allowed, -1},
                {at("2026-03-09T09:00:00Z"), at("2026-03-09T17:01:00Z"), Kind::blackout, 0},
                {at("2026-03-09T17:01:00Z"), at("2026-03-09T17:30:00Z"), Kind::allowed, -1}}));
}

// No weeks named is every week: nothing to look further ahead for.
TEST(VelmoWindowPolicy, EmptyWeeksAreNotMonthScoped) {
  EXPECT_FALSE(allowing(window(kEveryDay, {0, 0}, {23, 59}, weeks({}))).usesMonthScopedWindows());
}

// Read afresh at each call, so a change of the host's zone applies at once.
TEST(VelmoWindowPolicy, TheCurrentZoneIsTheHostsAtEachCall) {
  const char* saved = std::getenv("TZ");
  const std::optional<std::string> before =
      saved ? std::optional<std::string>(saved) : std::nullopt;
  for (const char* zone : {"Europe/Berlin", "Asia/Tokyo"}) {
    setenv("TZ", zone, 1);
    EXPECT_EQ(VelmoWindowPolicy::currentTimeZoneId(), zone);
  }
  if (before) {
    setenv("TZ", before->c_str(), 1);
  } else {
    unsetenv("TZ");
  }
}

}  // namespace
}  // namespace velmo::core
