#include "core/items/UpdateItem.h"

#include <gtest/gtest.h>

#include <nlohmann/json.hpp>

namespace velmo::core {
namespace {

using nlohmann::json;

UpdateItem item(std::optional<std::string> installed = std::nullopt,
                std::optional<bool> serial = std::nullopt) {
  return UpdateItem("com.example.foo", "Foo", "2.0", std::move(installed), "/Applications/Foo.app",
                    true, false, serial);
}

TEST(UpdateItem, EncodesOptionalKeysOnlyWhenPresentAndDecodesBack) {
  for (const auto& original : {item(), item("1.9", false)}) {
    const auto decoded = UpdateItem::fromJSONText(original.jsonText().value());
    ASSERT_TRUE(decoded);
    EXPECT_EQ(json::parse(*original.jsonText()).size(), original.installedVersion ? 8u : 6u);
    EXPECT_EQ(decoded->installedVersion, original.installedVersion);
    EXPECT_EQ(decoded->serialInstallRequired, original.serialInstallRequired);
    EXPECT_EQ(decoded->installPath, original.installPath);
    EXPECT_TRUE(decoded->respectDnd);
  }
  EXPECT_EQ(item("\xff").jsonText(), std::nullopt);  // Not UTF-8: no JSON form.
}

TEST(UpdateItem, IgnoresStateUnknownKeysAndNullOptionals) {
  auto object = json::parse(item().jsonText().value());
  object.update({{"state", "installing"}, {"colour", 1}, {"installedVersion", nullptr}});
  const auto decoded = UpdateItem::fromJSONText(object.dump());
  ASSERT_TRUE(decoded);
  EXPECT_EQ(decoded->state(), InstallState::available);
  EXPECT_EQ(decoded->installedVersion, std::nullopt);
}

TEST(UpdateItem, IdentityIsTheIdAlone) {
  auto other = item("1.0", true);
  other.targetVersion = "3.0";
  EXPECT_EQ(other, item());
  EXPECT_EQ(std::hash<UpdateItem>{}(other), std::hash<UpdateItem>{}(item()));
  other.id += ".beta";
  EXPECT_FALSE(other == item());
}

std::vector<std::string> badItems() {
  std::vector<std::string> texts = {"{", "", "null", "[]", R"("x")", "{} x"};
  const auto good = json::parse(item("1", true).jsonText().value());
  for (const auto& [key, value] : good.items()) {
    auto missing = good;
    missing.erase(key);
    if (key != "installedVersion" && key != "serialInstallRequired")
      texts.push_back(missing.dump());
    auto wrongType = good;
    wrongType[key] = value.is_string() ? json(1) : json("true");
    texts.push_back(wrongType.dump());
    if (value.is_string()) {
      auto tooLong = good;
      tooLong[key] = std::string(UpdateItem::kMaxFieldLength + 1, 'v');
      texts.push_back(tooLong.dump());
    }
  }
  auto numericBool = good;
  numericBool["respectDnd"] = 1;
  texts.push_back(numericBool.dump());
  // An id that would reach the tool's command line as a flag.
  auto flag = good;
  flag["id"] = "--config=/tmp/evil.conf";
  texts.push_back(flag.dump());
  return texts;
}

class UpdateItemBadText : public ::testing::TestWithParam<std::string> {};

TEST_P(UpdateItemBadText, FailsAloneAndSinksAWholeArray) {
  EXPECT_EQ(UpdateItem::fromJSONText(GetParam()), std::nullopt);
  const auto array = "[" + item().jsonText().value() + "," + GetParam() + "]";
  EXPECT_EQ(UpdateItem::arrayFromJSONText(array), std::nullopt);
}

INSTANTIATE_TEST_SUITE_P(Texts, UpdateItemBadText, ::testing::ValuesIn(badItems()));

TEST(UpdateItem, ArraysDecodeWholeAndOnlyFromArrays) {
  EXPECT_EQ(
      UpdateItem::arrayFromJSONText(UpdateItem::jsonText({item(), item("1")}).value())->size(), 2u);
  EXPECT_EQ(UpdateItem::arrayFromJSONText("[]")->size(), 0u);
  EXPECT_EQ(UpdateItem::arrayFromJSONText(item().jsonText().value()), std::nullopt);
}

// States arrive from the notifier as raw values: exact spellings only.
TEST(InstallState, EveryStateReadsBackAndNearMissesAreNone) {
  for (int i = 0; i <= static_cast<int>(InstallState::failed); ++i) {
    const auto state = static_cast<InstallState>(i);
    EXPECT_EQ(installStateFromRawValue(rawValue(state)), state) << i;
  }
  for (const char* raw : {"Installed", " installed", "pending_queue", ""}) {
    EXPECT_EQ(installStateFromRawValue(raw), std::nullopt) << raw;
  }
}

}  // namespace
}  // namespace velmo::core
