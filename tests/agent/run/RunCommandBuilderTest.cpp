#include "agent/run/RunCommandBuilder.h"

#include <gtest/gtest.h>

namespace velmo::agent::run {
namespace {

using Commands = std::vector<Command>;

struct BuildCase {
  const char* name;
  RunPolicy policy;
  bool runningAppsFirst;
  Commands expected;
};

void PrintTo(const BuildCase& c, std::ostream* os) { *os << c.name; }

class RunCommandBuilderTest : public ::testing::TestWithParam<BuildCase> {};

TEST_P(RunCommandBuilderTest, BuildsTheExactVectors) {
  EXPECT_EQ(RunCommandBuilder::build(GetParam().policy, GetParam().runningAppsFirst),
            GetParam().expected);
}

INSTANTIATE_TEST_SUITE_P(
    Table, RunCommandBuilderTest,
    ::testing::Values(
        BuildCase{"SelfUpdateDisabledWithUpdateAllAndDnd",
                  {.updateAll = true,
                   .installOrUpdateIDs = {"a"},
                   .respectDND = true,
                   .disableSelfUpdate = true},
                  false,
                  {{"install", "a", "--respect-dnd"},
                   {"update-all", "--respect-exclusions-preference", "--exclusions", "a",
                    "--respect-dnd"}}},
        BuildCase{"SelfUpdateDisabledAloneGivesNothing", {.disableSelfUpdate = true}, false, {}},
        BuildCase{"ChannelTrimmedAnyCase",
                  {.updateChannel = " BETA\n"},
                  false,
                  {{"install", "marvenith-velmo-preview"}}},
        // Pasted from a web page: no-break space, line separator, ideographic space.
        BuildCase{"ChannelTrimmedOfUnicodeWhiteSpace",
                  {.updateChannel = "\u3000beta\u00a0\u2028"},
                  false,
                  {{"install", "marvenith-velmo-preview"}}},
        BuildCase{"ChannelInnerSpaceStays",
                  {.updateChannel = "be\u00a0ta"},
                  false,
                  {{"install", "marvenith-velmo"}}},
        BuildCase{"ChannelUnknownIsStable",
                  {.updateChannel = "nightly"},
                  false,
                  {{"install", "marvenith-velmo"}}},
        BuildCase{"IntegrityPolicyTrimmed",
                  {.integrityPolicyRaw = "\u0085 disabled\u00a0"},
                  false,
                  {{"install", "marvenith-velmo", "--integrity-policy", "disabled"}}},
        // Unlike the channel, the integrity policy must match case exactly.
        BuildCase{"IntegrityPolicyWrongCase",
                  {.integrityPolicyRaw = "Disabled"},
                  false,
                  {{"install", "marvenith-velmo"}}},
        BuildCase{"IdInBothListsOnlyInstalls",
                  {.installOrUpdateIDs = {"a"}, .updateOnlyIDs = {"a", "b"}},
                  false,
                  {{"install", "marvenith-velmo", "a"}, {"install", "b", "--update-only"}}},
        BuildCase{"EveryUpdateOnlyIdAlsoInstalledLeavesAnEmptyCommand",
                  {.installOrUpdateIDs = {"a"}, .updateOnlyIDs = {"a"}},
                  false,
                  {{"install", "marvenith-velmo", "a"}, {"install", "--update-only"}}},
        BuildCase{
            "UpdateAllIgnoresUpdateOnlyAndExcludesInstalledIds",
            {.updateAll = true,
             .updateAllExclusions = {"c", "a"},
             .installOrUpdateIDs = {"a", "b"},
             .updateOnlyIDs = {"z"}},
            false,
            {{"install", "marvenith-velmo", "a", "b"},
             {"update-all", "--respect-exclusions-preference", "--exclusions", "a", "b", "c"}}},
        BuildCase{"UserInitiatedPutsRunningFirstAheadOfFlagsAndExclusions",
                  {.updateAll = true,
                   .updateAllExclusions = {"x"},
                   .deferIfRunning = true,
                   .enableMenuBarApp = true},
                  true,
                  {{"install", "marvenith-velmo", "--running-first", "--silent",
                    "--menu-bar-notification"},
                   {"update-all", "--respect-exclusions-preference", "--running-first",
                    "--exclusions", "x", "--silent", "--menu-bar-notification"}}},
        BuildCase{"UserInitiatedUpdateOnly",
                  {.updateOnlyIDs = {"b"}},
                  true,
                  {{"install", "marvenith-velmo", "--running-first"},
                   {"install", "b", "--update-only", "--running-first"}}}),
    [](const auto& info) { return std::string(info.param.name); });

}  // namespace
}  // namespace velmo::agent::run
