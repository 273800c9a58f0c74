#include "core/deferrals/DialogResponse.h"

#include <gtest/gtest.h>

#include <utility>

#include <nlohmann/json.hpp>

namespace velmo::core {
namespace {

using nlohmann::json;
using Kind = ResponseType::Kind;

UpdateItem item(std::string installPath = "/Applications/Foo Bar.app") {
  return UpdateItem("com.example.foo", "Foo", "2.0", "1.9", std::move(installPath), true, false);
}

std::vector<std::string> badResponses() {
  const auto good =
      json::parse(DialogResponse::fromItem(item(), {Kind::deferral, ""}).jsonText().value());
  std::vector<std::string> texts = {"", "{", "null", "[]", good.dump() + " x"};
  for (const auto& [key, value] : good.items()) {
    auto missing = good;
    missing.erase(key);
    texts.push_back(missing.dump());
    auto wrongType = good;
    wrongType[key] = value.is_string() ? json(1) : json("deferral");
    texts.push_back(wrongType.dump());
    if (value.is_string()) {
      auto tooLong = good;
      tooLong[key] = "file:///" + std::string(UpdateItem::kMaxFieldLength, 'v');
      texts.push_back(tooLong.dump());
    }
  }
  for (const char* url : {"http://[bad", ""}) {
    auto badURL = good;
    badURL["url"] = url;
    texts.push_back(badURL.dump());
  }
  auto twoCases = good;
  twoCases["response"]["update"] = json::object();
  texts.push_back(twoCases.dump());
  for (const char* key : {"appId", "identifier"}) {
    auto flag = good;
    flag[key] = "--dr-flag";
    texts.push_back(flag.dump());
  }
  return texts;
}

class DialogResponseBadText : public ::testing::TestWithParam<std::string> {};

TEST_P(DialogResponseBadText, Fails) {
  EXPECT_EQ(DialogResponse::fromJSONText(GetParam()), std::nullopt);
}

INSTANTIATE_TEST_SUITE_P(Texts, DialogResponseBadText, ::testing::ValuesIn(badResponses()));

TEST(DialogResponse, HasNoJSONFormForTextThatIsNotUTF8) {
  auto response = DialogResponse::fromItem(item(), {Kind::meetingDeferral, "\xff"});
  EXPECT_EQ(response.jsonText(), std::nullopt);
}

}  // namespace
}  // namespace velmo::core
