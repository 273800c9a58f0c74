#include "core/plist/Defaults.h"

#include <gtest/gtest.h>

#include "platform/fake/FakeUserDefaults.h"
#include "tests/support/DefaultsData.h"

namespace velmo::core {
namespace {

struct Window {
  std::string day;
  int hour = 0;
  bool operator==(const Window&) const = default;
};
void to_json(nlohmann::json& json, const Window& window) {
  json = {{"day", window.day}, {"hour", window.hour}};
}
void from_json(const nlohmann::json& json, Window& window) {
  json.at("day").get_to(window.day);
  json.at("hour").get_to(window.hour);
}

class DefaultsTest : public ::testing::Test {
 protected:
  platform::fake::FakeUserDefaults store_;
};

TEST_F(DefaultsTest, TakesOnlyValuesOfTheAskedType) {
  Defaults<bool> updateAll(store_, "UpdateAll", false);
  Defaults<std::vector<std::string>> only(store_, "UpdateOnly", {});
  Defaults<std::optional<std::string>> channel(store_, "UpdateChannel", std::nullopt);

  EXPECT_FALSE(updateAll.wrappedValue());
  store_.setObject("UpdateAll", 1);
  EXPECT_TRUE(updateAll.wrappedValue());
  store_.setObject("UpdateAll", 2);  // A number other than 0 or 1 is no Boolean.
  EXPECT_FALSE(updateAll.wrappedValue());
  store_.setObject("UpdateAll", "YES");
  EXPECT_FALSE(updateAll.wrappedValue());

  store_.setObject("UpdateOnly", PlistArray{"a", "b"});
  EXPECT_EQ(only.wrappedValue(), (std::vector<std::string>{"a", "b"}));
  store_.setObject("UpdateOnly", PlistArray{"a", 1});  // Not partly converted.
  EXPECT_EQ(only.wrappedValue(), std::vector<std::string>{});
  store_.setObject("UpdateOnly", PlistArray{1, 2});
  EXPECT_EQ(only.wrappedValue(), std::vector<std::string>{});

  EXPECT_EQ(channel.wrappedValue(), std::nullopt);
  store_.setObject("UpdateChannel", 5);
  EXPECT_EQ(channel.wrappedValue(), std::nullopt);
  store_.setObject("UpdateChannel", "beta");
  EXPECT_EQ(channel.wrappedValue(), "beta");
}

TEST_F(DefaultsTest, DataRoundTripsJsonAndABadBlobGivesTheDefaultAndStays) {
  testing::DefaultsData<Window> window(store_, "Window", Window{"none", 0});
  EXPECT_EQ(window.wrappedValue(), (Window{"none", 0}));
  window.setWrappedValue(Window{"Tuesday", 3});
  EXPECT_EQ(window.wrappedValue(), (Window{"Tuesday", 3}));

  const std::string bad = "{\"day\": 5}";
  store_.setObject("Window", PlistData(bad.begin(), bad.end()));
  EXPECT_EQ(window.wrappedValue(), (Window{"none", 0}));
  EXPECT_EQ(store_.object("Window"), PlistValue(PlistData(bad.begin(), bad.end())));
  store_.setObject("Window", "not data");
  EXPECT_EQ(window.wrappedValue(), (Window{"none", 0}));
}

}  // namespace
}  // namespace velmo::core
