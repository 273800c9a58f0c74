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

}  // namespace
}  // namespace velmo::core
