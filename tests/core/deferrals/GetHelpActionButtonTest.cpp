#include "core/deferrals/GetHelpActionButton.h"

#include <gtest/gtest.h>

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

}  // namespace
}  // namespace velmo::core
