#include "agent/run/RunPolicyDiff.h"

#include <gtest/gtest.h>

namespace velmo::agent::run {
namespace {

using policy::VelmoRunConfig;
using Replan = RunPolicyDiff::Replan;

const core::TimeInterval kFourHours{14400.0};
const core::VelmoTimeWindow kWednesdayNight{
    .days = {core::Weekday::wed}, .start = {2, 0}, .end = {3, 0}};

struct DiffCase {
  const char* name;
  VelmoRunConfig before;
  VelmoRunConfig after;
  // The interval the timer runs at now.
  core::TimeInterval timer;
  RunPolicyDiff expected;
};

void PrintTo(const DiffCase& c, std::ostream* os) { *os << c.name; }

class RunPolicyDiffTable : public ::testing::TestWithParam<DiffCase> {};

TEST_P(RunPolicyDiffTable, SaysWhatTheNewPolicyAsksFor) {
  const auto& c = GetParam();
  const auto diff = RunPolicyDiff::between(c.before, c.after, c.timer);
  EXPECT_EQ(diff.refusedInterval, c.expected.refusedInterval);
  EXPECT_EQ(diff.interval, c.expected.interval);
  EXPECT_EQ(diff.addedInstallOrUpdate, c.expected.addedInstallOrUpdate);
  EXPECT_EQ(diff.addedUpdateOnly, c.expected.addedUpdateOnly);
  EXPECT_EQ(diff.replan, c.expected.replan);
}

INSTANTIATE_TEST_SUITE_P(
    Steps, RunPolicyDiffTable,
    ::testing::Values(
        DiffCase{"NothingChanged", {.runInterval = 3600}, {.runInterval = 3600}, kFourHours, {}},
        DiffCase{"NewIntervalMovesTheTimer",
                 {},
                 {.runInterval = 3600},
                 kFourHours,
                 {.interval = core::TimeInterval(3600)}},
        DiffCase{"NewIntervalTheTimerAlreadyHas", {}, {.runInterval = 14400}, kFourHours, {}},
        // The timer may run at an interval read loosely at start; an unchanged key keeps it.
        DiffCase{"UnchangedKeyKeepsTheTimer",
                 {.runInterval = 3600},
                 {.runInterval = 3600, .updateAll = true},
                 core::TimeInterval(600),
                 {}},
        DiffCase{"RemovedIntervalFallsBackToTheDefault",
                 {.runInterval = 3600},
                 {},
                 core::TimeInterval(3600),
                 {.interval = kFourHours}},
        DiffCase{"UnusableIntervalIsRefusedForTheDefault",
                 {.runInterval = 3600},
                 {.runInterval = -60},
                 core::TimeInterval(3600),
                 {.refusedInterval = -60, .interval = kFourHours}},
        DiffCase{"UnusableIntervalAtTheDefaultIsOnlyRefused",
                 {},
                 {.runInterval = 0},
                 kFourHours,
                 {.refusedInterval = 0}},
        DiffCase{"OnlyAddedIDsCount",
                 {.updateOnly = {"a", "b"}, .installOrUpdate = {"x"}},
                 {.updateOnly = {"b", "c", "y"}, .installOrUpdate = {"y", "z"}},
                 kFourHours,
                 {.addedInstallOrUpdate = {"y", "z"}, .addedUpdateOnly = {"c"}}},
        DiffCase{"SplayAloneReplans", {}, {.runSplay = 600}, kFourHours, {.replan = Replan::splay}},
        DiffCase{"WindowsWinOverSplay",
                 {},
                 {.runSplay = 600, .globalAllowWindows = {kWednesdayNight}},
                 kFourHours,
                 {.replan = Replan::windows}},
        DiffCase{"BlackoutsAreWindows",
                 {.globalBlackoutWindows = {kWednesdayNight}},
                 {},
                 kFourHours,
                 {.replan = Replan::windows}},
        DiffCase{"TheTuesdayWindowIsAWindow",
                 {},
                 {.velmoTuesdayOnly = true},
                 kFourHours,
                 {.replan = Replan::windows}},
        DiffCase{"TheUserOverrideMovesNothing",
                 {},
                 {.allowUserInitiatedOutsideWindows = false},
                 kFourHours,
                 {}}),
    [](const auto& info) { return std::string(info.param.name); });

}  // namespace
}  // namespace velmo::agent::run
