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

}  // namespace
}  // namespace velmo::core
