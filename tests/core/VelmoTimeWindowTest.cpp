#include "core/VelmoTimeWindow.h"

#include <gtest/gtest.h>

#include <functional>
#include <limits>

#include <nlohmann/json.hpp>

#include "core/AppInstallWindows.h"
#include "core/GlobalAllowWindows.h"
#include "core/PropertyList.h"
#include "platform/fake/FakeUserDefaults.h"

namespace velmo::core {
namespace {

using nlohmann::json;
constexpr auto kMax = std::numeric_limits<std::int64_t>::max();

TEST(Weekday, CalendarValuesStartTheWeekOnSunday) {
  const char* raws[] = {"mon", "tue", "wed", "thu", "fri", "sat", "sun"};
  const int calendar[] = {2, 3, 4, 5, 6, 7, 1};
  for (std::size_t i = 0; i < kAllWeekdays.size(); ++i) {
    EXPECT_EQ(rawValue(kAllWeekdays[i]), raws[i]);
    EXPECT_EQ(weekdayFromRawValue(raws[i]), kAllWeekdays[i]);
    EXPECT_EQ(calendarValue(kAllWeekdays[i]), calendar[i]);
  }
  EXPECT_EQ(weekdayFromRawValue("Tue"), std::nullopt);
}

TEST(TimeOfDay, MinuteOfDayIsUncheckedButNeverOverflows) {
  const std::pair<TimeOfDay, std::optional<std::int64_t>> rows[] = {
      {{24, 0}, 1440},
      {{-1, 90}, 30},
      {{kMax / 60, 7}, kMax / 60 * 60 + 7},
      {{kMax / 60 + 1, 0}, std::nullopt},
      {{kMax / 60, 60}, std::nullopt},
      {{std::numeric_limits<std::int64_t>::min() / 60 - 1, 0}, std::nullopt}};
  for (const auto& [time, expected] : rows) {
    EXPECT_EQ(time.minuteOfDay(), expected) << time.hour << ":" << time.minute;
  }
}

// The encoded example of the design: Tuesdays and Thursdays of weeks 1 and 3,
// 22:00 to 06:30.
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

TEST(VelmoTimeWindow, CodesBothWaysLeavingOutAbsentOptionals) {
  EXPECT_EQ(lateNights().toPlist(), PlistValue(lateNightsPlist()));
  EXPECT_EQ(json(lateNights()), json::parse(R"({"days":["tue","thu"],"weeksOfMonth":[1,3],
      "start":{"hour":22,"minute":0},"end":{"hour":6,"minute":30}})"));

  auto typed = lateNights();
  typed.type = VelmoTimeWindow::WindowType::deny;
  const VelmoTimeWindow emptyWeeks{std::nullopt, {}, std::set<std::int64_t>{}, {0, 0}, {0, 0}};
  const VelmoTimeWindow odd{VelmoTimeWindow::WindowType::allow,
                            {Weekday::sun},
                            std::set<std::int64_t>{0, 7, -1},
                            {kMax, -5},
                            {25, 61}};
  for (const auto& window : {lateNights(), typed, emptyWeeks, odd}) {
    EXPECT_EQ(VelmoTimeWindow::fromPlist(window.toPlist()), window);
    EXPECT_EQ(json::parse(json(window).dump()).get<VelmoTimeWindow>(), window);
  }
  EXPECT_EQ(json(typed).at("type"), "deny");
}

TEST(VelmoTimeWindow, EqualityAndHashTreatDaysAndWeeksAsSets) {
  auto reordered = lateNightsPlist();
  reordered["days"] = PlistArray{"thu", "tue", "thu"};
  reordered["weeksOfMonth"] = PlistArray{3, 1};
  const auto decoded = VelmoTimeWindow::fromPlist(reordered);
  ASSERT_TRUE(decoded);
  EXPECT_EQ(*decoded, lateNights());
  const std::hash<VelmoTimeWindow> hash;
  EXPECT_EQ(hash(*decoded), hash(lateNights()));
  // Absent and empty weeks match alike but are different values.
  auto empty = lateNights();
  empty.weeksOfMonth.emplace();
  auto absent = lateNights();
  absent.weeksOfMonth.reset();
  EXPECT_NE(empty, absent);
  EXPECT_NE(hash(empty), hash(absent));
}

struct PlistDecodeCase {
  const char* name;
  std::function<void(PlistDictionary&)> change;
  bool decodes;
};

class PlistDecode : public ::testing::TestWithParam<PlistDecodeCase> {};

TEST_P(PlistDecode, IsStrictAboutTheKnownKeys) {
  auto window = lateNightsPlist();
  GetParam().change(window);
  EXPECT_EQ(VelmoTimeWindow::fromPlist(window).has_value(), GetParam().decodes);
}

PlistValue& hour(PlistDictionary& window) {
  return (*window["start"].getIf<PlistDictionary>())["hour"];
}

INSTANTIATE_TEST_SUITE_P(
    Cases, PlistDecode,
    ::testing::Values(
        PlistDecodeCase{"UnknownKeyIgnored", [](auto& w) { w["note"] = 1; }, true},
        PlistDecodeCase{"NoDays", [](auto& w) { w.erase("days"); }, false},
        PlistDecodeCase{"NoEnd", [](auto& w) { w.erase("end"); }, false},
        PlistDecodeCase{"NoMinute",
                        [](auto& w) {
                          w["start"] = PlistDictionary{{"hour", 22}};
                        },
                        false},
        PlistDecodeCase{"UnknownDay",
                        [](auto& w) {
                          w["days"] = PlistArray{"tue", "Thu"};
                        },
                        false},
        PlistDecodeCase{"DaysNotArray", [](auto& w) { w["days"] = "tue"; }, false},
        PlistDecodeCase{"UnknownType", [](auto& w) { w["type"] = "block"; }, false},
        PlistDecodeCase{"TypeNumber", [](auto& w) { w["type"] = 0; }, false},
        PlistDecodeCase{"WeeksNotArray", [](auto& w) { w["weeksOfMonth"] = 2; }, false},
        PlistDecodeCase{"WeekString", [](auto& w) { w["weeksOfMonth"] = PlistArray{"2"}; }, false},
        PlistDecodeCase{"WeekFraction",
                        [](auto& w) { w["weeksOfMonth"] = PlistArray{PlistValue(2.5)}; }, false},
        PlistDecodeCase{"HourIntegralReal", [](auto& w) { hour(w) = 22.0; }, true},
        PlistDecodeCase{"HourFraction", [](auto& w) { hour(w) = 21.999; }, false},
        PlistDecodeCase{"HourPast64Bits", [](auto& w) { hour(w) = 9.3e18; }, false},
        PlistDecodeCase{"HourString", [](auto& w) { hour(w) = "22"; }, false},
        PlistDecodeCase{"HourBoolean", [](auto& w) { hour(w) = true; }, false}),
    [](const auto& info) { return std::string(info.param.name); });

struct JsonDecodeCase {
  const char* name;
  std::function<void(json&)> change;
  bool decodes;
};

class JsonDecode : public ::testing::TestWithParam<JsonDecodeCase> {};

TEST_P(JsonDecode, FollowsThePlatformDecoder) {
  json window = lateNights();
  GetParam().change(window);
  if (GetParam().decodes) {
    EXPECT_EQ(window.get<VelmoTimeWindow>(), lateNights());
  } else {
    EXPECT_THROW(window.get<VelmoTimeWindow>(), json::exception);
  }
}

INSTANTIATE_TEST_SUITE_P(
    Cases, JsonDecode,
    ::testing::Values(
        JsonDecodeCase{"NullType", [](auto& j) { j["type"] = nullptr; }, true},
        JsonDecodeCase{"ExactFloat", [](auto& j) { j["start"]["hour"] = 22.0; }, true},
        JsonDecodeCase{"Fraction", [](auto& j) { j["start"]["hour"] = 22.5; }, false},
        JsonDecodeCase{"Boolean", [](auto& j) { j["end"]["minute"] = true; }, false},
        JsonDecodeCase{"Unsigned64", [](auto& j) { j["end"]["hour"] = ~std::uint64_t{0}; }, false},
        JsonDecodeCase{"NullDays", [](auto& j) { j["days"] = nullptr; }, false},
        JsonDecodeCase{"UnknownDay", [](auto& j) { j["days"].push_back("xyz"); }, false},
        JsonDecodeCase{"WeeksObject",
                       [](auto& j) {
                         j["weeksOfMonth"] = {{"a", 1}};
                       },
                       false}),
    [](const auto& info) { return std::string(info.param.name); });

PlistData dataOf(const PlistValue& value) {
  const auto xml = PropertyList::xml(value);
  return xml ? PlistData(xml->begin(), xml->end()) : PlistData();
}

struct ReadArrayCase {
  const char* name;
  std::optional<PlistValue> stored;
  std::size_t count;
};

class ReadArray : public ::testing::TestWithParam<ReadArrayCase> {};

TEST_P(ReadArray, TakesAWholeListOrNothing) {
  platform::fake::FakeUserDefaults store;
  if (GetParam().stored) store.setObject("GlobalAllowWindows", *GetParam().stored);
  const auto windows = VelmoTimeWindow::readArray(store, "GlobalAllowWindows");
  ASSERT_EQ(windows.size(), GetParam().count);
  for (const auto& window : windows) EXPECT_EQ(window, lateNights());
}

const PlistArray kTwo{lateNightsPlist(), lateNightsPlist()};
const PlistArray kSecondOfThreeBad = [] {
  auto bad = lateNightsPlist();
  bad["days"] = PlistArray{"tue", "someday"};
  return PlistArray{lateNightsPlist(), bad, lateNightsPlist()};
}();

INSTANTIATE_TEST_SUITE_P(
    Cases, ReadArray,
    ::testing::Values(ReadArrayCase{"Absent", std::nullopt, 0},
                      ReadArrayCase{"NativeArray", kTwo, 2},
                      ReadArrayCase{"EncodedBlob", dataOf(kTwo), 2},
                      ReadArrayCase{"NativeOneBad", kSecondOfThreeBad, 0},
                      ReadArrayCase{"BlobOneBad", dataOf(kSecondOfThreeBad), 0},
                      ReadArrayCase{"SingleDictionary", lateNightsPlist(), 0},
                      ReadArrayCase{"BlobOfDictionary", dataOf(lateNightsPlist()), 0},
                      ReadArrayCase{"BlobNotAPlist", PlistData{'d', 'a', 'y', '='}, 0},
                      ReadArrayCase{"String", "tue 09:00-17:00", 0}),
    [](const auto& info) { return std::string(info.param.name); });

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
