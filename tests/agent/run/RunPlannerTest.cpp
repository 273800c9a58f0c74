#include "agent/run/RunPlanner.h"

#include <gtest/gtest.h>

#include "core/time/Iso8601DateFormatter.h"

namespace velmo::agent::run {
namespace {

platform::TimePoint at(const char* text) {
  const auto date = core::Iso8601DateFormatter::date(text);
  EXPECT_TRUE(date) << text;
  return date.value_or(platform::TimePoint());
}

const std::set<core::Weekday> kEveryDay(core::kAllWeekdays.begin(), core::kAllWeekdays.end());
// Allowed from 09:00 to 10:00: a stretch of one hour.
const core::VelmoWindowPolicy kMornings({{.days = kEveryDay, .start = {9, 0}, .end = {9, 59}}}, {},
                                        "UTC");
// Only days of a month's sixth week: after 2026-05-31 the next is 2026-08-30.
const core::VelmoWindowPolicy kSixthWeeks({{.days = kEveryDay,
                                            .weeksOfMonth = std::set<std::int64_t>{6},
                                            .start = {0, 0},
                                            .end = {23, 59}}},
                                          {}, "UTC");

struct PlanCase {
  const char* name;
  core::VelmoWindowPolicy policy;
  double splay;
  const char* end;    // Of the last run; the interval is four hours.
  const char* start;  // Of the next.
};

void PrintTo(const PlanCase& c, std::ostream* os) { *os << c.name; }

class RunPlannerTest : public ::testing::TestWithParam<PlanCase> {};

TEST_P(RunPlannerTest, StartsTheNextRunWhereTheWindowsAndTheSplaySay) {
  const RunPlanner planner(GetParam().policy, core::TimeInterval(14400),
                           core::TimeInterval(GetParam().splay));
  EXPECT_EQ(planner.afterRun(at(GetParam().end)).start, at(GetParam().start));
}

INSTANTIATE_TEST_SUITE_P(
    Table, RunPlannerTest,
    ::testing::Values(
        // Due at 09:30, inside the window: the windows moved nothing, so no splay.
        PlanCase{"AnAllowedDueIsNotSplayed", kMornings, 600, "2026-03-10T05:30:00Z",
                 "2026-03-10T09:30:00Z"},
        PlanCase{"ASplayOfOneSecond", kMornings, 1, "2026-03-10T01:00:00Z", "2026-03-10T09:00:01Z"},
        // The end of the stretch is no longer allowed.
        PlanCase{"ASplayOfTheWholeStretchWrapsToItsStart", kMornings, 3600, "2026-03-10T01:00:00Z",
                 "2026-03-10T09:00:00Z"},
        // 2026-08-30 is the 61st day counted from 2026-07-01: past the search.
        PlanCase{"NothingWithinSixtyDaysKeepsTheDue", kSixthWeeks, 0, "2026-07-01T08:00:00Z",
                 "2026-07-01T12:00:00Z"}),
    [](const auto& info) { return std::string(info.param.name); });

struct IntervalCase {
  const char* name;
  double seconds;
  std::optional<double> usable;
};

void PrintTo(const IntervalCase& c, std::ostream* os) { *os << c.name; }

class UsableInterval : public ::testing::TestWithParam<IntervalCase> {};

TEST_P(UsableInterval, IsAboveZeroAndFinite) {
  const auto usable = RunPlanner::usableInterval(GetParam().seconds);
  EXPECT_EQ(usable ? std::optional(usable->count()) : std::nullopt, GetParam().usable);
}

INSTANTIATE_TEST_SUITE_P(Table, UsableInterval,
                         ::testing::Values(IntervalCase{"Zero", 0, std::nullopt},
                                           IntervalCase{"HalfASecond", 0.5, 0.5}),
                         [](const auto& info) { return std::string(info.param.name); });

}  // namespace
}  // namespace velmo::agent::run
