#include "core/time/VelmoTimeWindow.h"

#include <gtest/gtest.h>

#include <optional>
#include <string>

#include <nlohmann/json.hpp>

#include "core/time/AppInstallWindows.h"
#include "core/time/GlobalAllowWindows.h"
#include "core/values/PropertyList.h"

namespace velmo::core {
namespace {

using nlohmann::json;

// Tuesdays and Thursdays of weeks 1 and 3, 22:00 to 06:30: every optional key
// present, and a window over midnight.
VelmoTimeWindow lateNights() {
  return {
      std::nullopt, {Weekday::tue, Weekday::thu}, std::set<std::int64_t>{1, 3}, {22, 0}, {6, 30}};
}

PlistDictionary lateNightsPlist() {
  return {{"days", PlistArray{"tue", "thu"}},
          {"weeksOfMonth", PlistArray{1, 3}},
          {"start", PlistDictionary{{"hour", 22}, {"minute", 0}}},
          {"end", PlistDictionary{{"hour", 6}, {"minute", 30}}}};
}

// An unknown window type, an hour that is a Boolean, days that are null: no window.
TEST(WindowDecode, IsStrictAboutTheKnownKeys) {
  auto unknownType = lateNightsPlist();
  unknownType["type"] = "block";
  EXPECT_EQ(VelmoTimeWindow::fromPlist(unknownType), std::nullopt);
  auto booleanHour = lateNightsPlist();
  (*booleanHour["start"].getIf<PlistDictionary>())["hour"] = true;
  EXPECT_EQ(VelmoTimeWindow::fromPlist(booleanHour), std::nullopt);
  json nullDays = lateNights();
  nullDays["days"] = nullptr;
  EXPECT_THROW(nullDays.get<VelmoTimeWindow>(), json::exception);
}

const PlistArray kSecondOfThreeBad = [] {
  auto bad = lateNightsPlist();
  bad["days"] = PlistArray{"tue", "someday"};
  return PlistArray{lateNightsPlist(), bad, lateNightsPlist()};
}();

TEST(WindowListWrappers, CodeTheirListUnderWindows) {
  const GlobalAllowWindows global{{lateNights(), VelmoTimeWindow{}}};
  EXPECT_EQ(GlobalAllowWindows::fromPlist(global.toPlist()), global);
  EXPECT_EQ(json(global).get<GlobalAllowWindows>(), global);
  const AppInstallWindows installs{{lateNights()}};
  EXPECT_EQ(AppInstallWindows::fromPlist(installs.toPlist()), installs);
  EXPECT_EQ(json(installs).at("windows").size(), 1u);
  EXPECT_EQ(GlobalAllowWindows::fromPlist(PlistDictionary{}), std::nullopt);
  EXPECT_EQ(AppInstallWindows::fromPlist(PlistDictionary{{"windows", kSecondOfThreeBad}}),
            std::nullopt);
}

}  // namespace
}  // namespace velmo::core
