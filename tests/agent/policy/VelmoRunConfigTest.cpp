#include "agent/policy/VelmoRunConfig.h"

#include <gtest/gtest.h>

namespace velmo::agent::policy {
namespace {

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
