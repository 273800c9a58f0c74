// The run policy's conditions on power and network: which machine states let
// a scheduled run start now, and the reason given when they don't.
#include "agent/run/RunConditions.h"

#include <gtest/gtest.h>

namespace velmo::agent::run {
namespace {

using platform::PowerState;

struct ConditionCase {
  const char* name;
  bool acOnly;
  std::int64_t minimumPercent;
  bool unmeteredOnly;
  RunConditions::Observed observed;
  const char* reason;  // Empty: runs now.
};

void PrintTo(const ConditionCase& c, std::ostream* os) { *os << c.name; }

class RunConditionsTable : public ::testing::TestWithParam<ConditionCase> {};

TEST_P(RunConditionsTable, RunsNowOrWaitsWithTheReason) {
  const auto& c = GetParam();
  policy::VelmoRunConfig config;
  config.runOnlyOnACPower = c.acOnly;
  config.minimumBatteryPercent = c.minimumPercent;
  config.runOnlyOnUnmeteredNetwork = c.unmeteredOnly;
  const auto verdict = RunConditions::decide(config, c.observed);
  EXPECT_EQ(verdict.runsNow, std::string(c.reason).empty());
  EXPECT_EQ(verdict.reason, c.reason);
}

const PowerState kMains{.onBattery = false, .percent = 5.0};
const PowerState kBattery50{.onBattery = true, .percent = 50.0};
const PowerState kBattery20{.onBattery = true, .percent = 20.0};
const PowerState kBattery19{.onBattery = true, .percent = 19.6};
const PowerState kBatteryUnknown{.onBattery = true};

INSTANTIATE_TEST_SUITE_P(
    Table, RunConditionsTable,
    ::testing::Values(
        ConditionCase{"KeysUnsetOnBatteryAndMetered", false, 0, false, {kBattery19, true}, ""},
        ConditionCase{"OnMains", true, 20, false, {kMains, std::nullopt}, ""},
        ConditionCase{"OnBattery",
                      true,
                      0,
                      false,
                      {kBattery50, std::nullopt},
                      "on battery (RunOnlyOnACPower)"},
        ConditionCase{"NoPowerServiceCountsAsMet", true, 20, false, {}, ""},
        ConditionCase{"AboveTheMinimum", false, 20, false, {kBattery50, std::nullopt}, ""},
        ConditionCase{"AtTheMinimum", false, 20, false, {kBattery20, std::nullopt}, ""},
        ConditionCase{"BelowTheMinimum",
                      false,
                      20,
                      false,
                      {kBattery19, std::nullopt},
                      "battery at 19%, below 20% (MinimumBatteryPercent)"},
        ConditionCase{"MinimumOnMainsDoesNotBind", false, 20, false, {kMains, std::nullopt}, ""},
        ConditionCase{"ChargeUnknown", false, 20, false, {kBatteryUnknown, std::nullopt}, ""},
        ConditionCase{"Metered",
                      false,
                      0,
                      true,
                      {kMains, true},
                      "on a metered network (RunOnlyOnUnmeteredNetwork)"},
        ConditionCase{"Unmetered", false, 0, true, {kMains, false}, ""},
        ConditionCase{"CostUnknownOrNoNetworkService", false, 0, true, {kMains, std::nullopt}, ""},
        ConditionCase{
            "PowerFirst", true, 0, true, {kBattery50, true}, "on battery (RunOnlyOnACPower)"}),
    [](const auto& info) { return std::string(info.param.name); });

}  // namespace
}  // namespace velmo::agent::run
