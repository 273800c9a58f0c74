#include "core/deferrals/GetHelpActionButton.h"

#include <gtest/gtest.h>

#include <functional>

namespace velmo::core {
namespace {

using nlohmann::json;

GetHelpActionButton button(std::optional<bool> isProminent = std::nullopt,
                           std::optional<std::string> iconSymbol = std::nullopt) {
  GetHelpActionButton b;
  b.label = "Service Desk";
  b.payload = "/Applications/Example.app";
  b.actionType = GetHelpActionType::openApp;
  b.isProminent = isProminent;
  b.iconSymbol = std::move(iconSymbol);
  return b;
}

TEST(GetHelpActionButton, EncodesCapitalisedKeysWithoutIdOrAbsentOptionals) {
  EXPECT_EQ(json(button()), json::parse(R"({"Label":"Service Desk",
      "Payload":"/Applications/Example.app","ActionType":"openApp"})"));
  EXPECT_EQ(json(button(false, "lifepreserver")), json::parse(R"({"Label":"Service Desk",
      "Payload":"/Applications/Example.app","ActionType":"openApp","IsProminent":false,
      "IconSymbol":"lifepreserver"})"));
}

TEST(GetHelpActionButton, EachDecodingIsANewButton) {
  const json encoded = button(true, "");
  const auto first = encoded.get<GetHelpActionButton>();
  const auto second = encoded.get<GetHelpActionButton>();
  EXPECT_NE(first.id, second.id);
  EXPECT_NE(first, second);
  auto expected = button(true, "");
  expected.id = first.id;
  EXPECT_EQ(first, expected);
}

TEST(GetHelpActionButton, NullOptionalsAndUnknownKeysDecodeAsAbsent) {
  const auto decoded = json::parse(R"({"Label":"a","Payload":"b","ActionType":"openFile",
      "IsProminent":null,"IconSymbol":null,"Colour":"red"})")
                           .get<GetHelpActionButton>();
  EXPECT_EQ(decoded.isProminent, std::nullopt);
  EXPECT_EQ(decoded.iconSymbol, std::nullopt);
}

class GetHelpActionButtonBadJson : public ::testing::TestWithParam<const char*> {};

TEST_P(GetHelpActionButtonBadJson, FailsToDecodeAndLeavesTheTargetAlone) {
  auto target = button(true, "x");
  const auto before = target;
  EXPECT_THROW(json::parse(GetParam()).get_to(target), json::exception);
  EXPECT_EQ(target, before);
}

INSTANTIATE_TEST_SUITE_P(
    Objects, GetHelpActionButtonBadJson,
    ::testing::Values(R"({"Payload":"p","ActionType":"openURL"})",
                      R"({"Label":"l","ActionType":"openURL"})", R"({"Label":"l","Payload":"p"})",
                      R"({"label":"l","Payload":"p","ActionType":"openURL"})",
                      R"({"Label":"l","Payload":"p","ActionType":"openWeb"})",
                      R"({"Label":null,"Payload":"p","ActionType":"openURL"})",
                      R"({"Label":"l","Payload":"p","ActionType":"openURL","IsProminent":1})",
                      R"({"Label":"l","Payload":"p","ActionType":"openURL","IconSymbol":3})",
                      R"([{"Label":"l","Payload":"p","ActionType":"openURL"}])", "null"));

class GetHelpActionButtonChange
    : public ::testing::TestWithParam<std::function<void(GetHelpActionButton&)>> {};

TEST_P(GetHelpActionButtonChange, MakesItUnequalWithAnotherHash) {
  const auto original = button();
  auto changed = original;
  EXPECT_EQ(std::hash<GetHelpActionButton>{}(changed), std::hash<GetHelpActionButton>{}(original));
  GetParam()(changed);
  EXPECT_NE(changed, original);
  EXPECT_NE(std::hash<GetHelpActionButton>{}(changed), std::hash<GetHelpActionButton>{}(original));
}

INSTANTIATE_TEST_SUITE_P(
    Fields, GetHelpActionButtonChange,
    ::testing::Values([](auto& b) { b.id = Uuid::random(); }, [](auto& b) { b.label += "!"; },
                      [](auto& b) { b.payload += "/"; },
                      [](auto& b) { b.actionType = GetHelpActionType::openFile; },
                      // A present default value is not the same as no value.
                      [](auto& b) { b.isProminent = false; }, [](auto& b) { b.iconSymbol = ""; },
                      // The hash follows field order, so swapped values don't cancel out.
                      [](auto& b) { std::swap(b.label, b.payload); }));

}  // namespace
}  // namespace velmo::core
