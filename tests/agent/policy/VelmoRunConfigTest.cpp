#include "agent/policy/VelmoRunConfig.h"

#include <gtest/gtest.h>

#include "platform/fake/FakeUserDefaults.h"

namespace velmo::agent::policy {
namespace {

using core::PlistArray;
using core::PlistDictionary;

core::PlistValue blackout() {
  return PlistArray{PlistDictionary{{"days", PlistArray{"sat"}},
                                    {"start", PlistDictionary{{"hour", 0}, {"minute", 0}}},
                                    {"end", PlistDictionary{{"hour", 23}, {"minute", 59}}}}};
}

TEST(VelmoRunConfig, ReadsEachKeyWithItsConversion) {
  platform::fake::FakeUserDefaults store;
  store.setObject("RunInterval", "3600");             // A string is no interval.
  store.setObject("UpdateOnly", PlistArray{"a", 7});  // One wrong element spoils the list.
  store.setObject("InstallOrUpdate", PlistArray{"b", "b", "c"});
  store.setObject("UpdateAll", 1);
  store.setObject("AllowUserInitiatedOutsideWindows", 0);
  store.setObject("EnableVelmoTuesdayWindow", "YES");
  store.setObject("GlobalBlackoutWindows", blackout());
  const VelmoRunConfig config = VelmoRunConfig::read(store);
  EXPECT_EQ(config.runInterval, std::nullopt);
  EXPECT_TRUE(config.updateOnly.empty());
  EXPECT_EQ(config.installOrUpdate, (std::set<std::string>{"b", "c"}));
  EXPECT_TRUE(config.updateAll);
  EXPECT_FALSE(config.allowUserInitiatedOutsideWindows);
  EXPECT_FALSE(config.velmoTuesdayOnly);
  EXPECT_EQ(config.globalBlackoutWindows.size(), 1u);

  store.setObject("RunInterval", 3600);
  EXPECT_EQ(VelmoRunConfig::read(store).runInterval, 3600.0);
}

TEST(VelmoRunConfig, TheWindowPolicyFollowsTheOrderOfTheLists) {
  const core::VelmoTimeWindow weekend{
      .days = {core::Weekday::sat, core::Weekday::sun}, .start = {0, 0}, .end = {23, 59}};
  const core::VelmoTimeWindow nights{.days = {core::Weekday::mon}, .start = {22, 0}, .end = {6, 0}};
  EXPECT_FALSE(VelmoRunConfig{}.windowPolicy("UTC").has_value());

  // Allow windows win over the Tuesday flag; blackout windows deny in every case.
  const auto allow = VelmoRunConfig{.globalAllowWindows = {nights},
                                    .globalBlackoutWindows = {weekend},
                                    .velmoTuesdayOnly = true}
                         .windowPolicy("Europe/Berlin");
  ASSERT_TRUE(allow);
  EXPECT_EQ(allow->allowWindows(), std::vector<core::VelmoTimeWindow>{nights});
  EXPECT_EQ(allow->denyWindows(), std::vector<core::VelmoTimeWindow>{weekend});
  EXPECT_EQ(allow->timeZoneId(), "Europe/Berlin");

  const auto tuesday =
      VelmoRunConfig{.globalBlackoutWindows = {weekend}, .velmoTuesdayOnly = true}.windowPolicy(
          "UTC");
  ASSERT_TRUE(tuesday);
  EXPECT_EQ(tuesday->allowWindows(),
            std::vector<core::VelmoTimeWindow>{core::VelmoWindowPolicy::tuesdayWindow()});

  const auto denyOnly = VelmoRunConfig{.globalBlackoutWindows = {weekend}}.windowPolicy("UTC");
  ASSERT_TRUE(denyOnly);
  EXPECT_TRUE(denyOnly->allowWindows().empty());
}

}  // namespace
}  // namespace velmo::agent::policy
