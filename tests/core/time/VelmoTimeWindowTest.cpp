#include "core/time/VelmoTimeWindow.h"

#include <gtest/gtest.h>

#include <optional>
#include <string>

#include <nlohmann/json.hpp>

#include "core/plist/PropertyList.h"
#include "core/time/AppInstallWindows.h"
#include "core/time/GlobalAllowWindows.h"

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

struct PlistDecodeCase {
  const char* name;
  std::string key;                  // "hour" and "minute" are those of the start
  std::optional<PlistValue> value;  // None: the key is removed
  bool decodes;
};

class PlistDecode : public ::testing::TestWithParam<PlistDecodeCase> {};

TEST_P(PlistDecode, IsStrictAboutTheKnownKeys) {
  const auto& [name, key, value, decodes] = GetParam();
  auto window = lateNightsPlist();
  auto& target =
      (key == "hour" || key == "minute") ? *window["start"].getIf<PlistDictionary>() : window;
  if (value) {
    target[key] = *value;
  } else {
    target.erase(key);
  }
  EXPECT_EQ(VelmoTimeWindow::fromPlist(window).has_value(), decodes);
}

INSTANTIATE_TEST_SUITE_P(Cases, PlistDecode,
                         ::testing::Values(PlistDecodeCase{"UnknownType", "type", "block", false},
                                           PlistDecodeCase{"HourBoolean", "hour", true, false}),
                         [](const auto& info) { return std::string(info.param.name); });

struct JsonDecodeCase {
  const char* name;
  const char* pointer;
  json value;
  bool decodes;
};

class JsonDecode : public ::testing::TestWithParam<JsonDecodeCase> {};

TEST_P(JsonDecode, FollowsThePlatformDecoder) {
  json window = lateNights();
  window[json::json_pointer(GetParam().pointer)] = GetParam().value;
  if (GetParam().decodes) {
    EXPECT_EQ(window.get<VelmoTimeWindow>(), lateNights());
  } else {
    EXPECT_THROW(window.get<VelmoTimeWindow>(), json::exception);
  }
}

INSTANTIATE_TEST_SUITE_P(Cases, JsonDecode,
                         ::testing::Values(JsonDecodeCase{"NullDays", "/days", nullptr, false}),
                         [](const auto& info) { return std::string(info.param.name); });

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
