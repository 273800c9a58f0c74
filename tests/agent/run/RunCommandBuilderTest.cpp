#include "agent/runner/RunCommandBuilder.h"

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
        // Both lists' IDs sorted into one exclusion list; the integrity policy
        // trimmed, then matched exactly.
        BuildCase{"UpdateAllExcludesBothListsWithAnIntegrityPolicy",
                  {.updateAll = true,
                   .updateAllExclusions = {"c"},
                   .installOrUpdateIDs = {"b"},
                   .integrityPolicyRaw = " cachedOnly\n"},
                  false,
                  {{"install", "marvenith-velmo", "b", "--integrity-policy", "cachedOnly"},
                   {"update-all", "--respect-exclusions-preference", "--exclusions", "b", "c",
                    "--integrity-policy", "cachedOnly"}}},
        BuildCase{"ChannelTrimmedAnyCase",
                  {.updateChannel = " BETA\n"},
                  false,
                  {{"install", "marvenith-velmo-preview"}}},
        // Pasted from a web page: no-break space, line separator, ideographic space.
        BuildCase{"ChannelTrimmedOfUnicodeWhiteSpace",
                  {.updateChannel = "\u3000beta\u00a0\u2028"},
                  false,
                  {{"install", "marvenith-velmo-preview"}}},
        BuildCase{"EveryUpdateOnlyIdAlsoInstalledLeavesAnEmptyCommand",
                  {.installOrUpdateIDs = {"a"}, .updateOnlyIDs = {"a"}},
                  false,
                  {{"install", "marvenith-velmo", "a"}, {"install", "--update-only"}}}),
    [](const auto& info) { return std::string(info.param.name); });

}  // namespace
}  // namespace velmo::agent::run
