#include "core/deferrals/Deferral.h"

#include <gtest/gtest.h>

#include <nlohmann/json.hpp>

namespace velmo::core {
namespace {

using nlohmann::json;

TEST(Deferral, AnOlderRecordStaysWithoutCountAndDetails) {
  const auto decoded = decodeDeferralMap(
      R"({"k":{"identifier":"a_1","appId":"a","targetVersion":"1","deferralCount":null,)"
      R"("deferrals":null,"extra":[]}})");
  ASSERT_TRUE(decoded);
  EXPECT_EQ(decoded->at("k"), Deferral::make("a", "1"));
  const auto object = json::parse(encodeDeferralMap(*decoded).value())["k"];
  EXPECT_FALSE(object.contains("deferralCount"));
  EXPECT_FALSE(object.contains("deferrals"));
}

// One member spoilt in a file that is otherwise good.
std::vector<std::string> badMaps() {
  const json good =
      json::parse(R"({"identifier":"a_1","appId":"a","targetVersion":"1","deferralCount":2,)"
                  R"("deferrals":[{"timestamp":"2026-03-10T14:05:09Z","reason":"r"}]})");
  std::vector<std::string> texts = {"", "[]", "null", R"({"k":[]})", R"({"k":1})"};
  for (const auto& [key, value] : good.items()) {
    auto missing = good;
    missing.erase(key);
    if (key != "deferralCount" && key != "deferrals") {
      texts.push_back(json{{"good", good}, {"bad", missing}}.dump());
    }
    auto wrongType = good;
    wrongType[key] = value.is_string() ? json(1) : json("2");
    texts.push_back(json{{"good", good}, {"bad", wrongType}}.dump());
  }
  const json badDetails[] = {
      1.5,
      json::object(),
      json::array({json::object({{"timestamp", "2026-03-10T14:05:09Z"}})}),
      json::array({json::object({{"reason", "r"}})}),
      json::array({json::object({{"timestamp", "2026-03-10T14:05:09Z"}, {"reason", nullptr}})}),
  };
  for (const auto& details : badDetails) {
    auto bad = good;
    bad["deferrals"] = details;
    texts.push_back(json{{"good", good}, {"bad", bad}}.dump());
  }
  auto tooBig = good;
  tooBig["deferralCount"] = 9223372036854775808u;
  texts.push_back(json{{"good", good}, {"bad", tooBig}}.dump());
  // The date parser has its own table of bad forms; one shows the whole map fails.
  auto badDate = good;
  badDate["deferrals"][0]["timestamp"] = "2026-02-30T14:05:09Z";
  texts.push_back(json{{"good", good}, {"bad", badDate}}.dump());
  return texts;
}

class DeferralBadMap : public ::testing::TestWithParam<std::string> {};

TEST_P(DeferralBadMap, FailsTheWholeMap) { EXPECT_EQ(decodeDeferralMap(GetParam()), std::nullopt); }

INSTANTIATE_TEST_SUITE_P(Texts, DeferralBadMap, ::testing::ValuesIn(badMaps()));

TEST(Deferral, HasNoFileFormForTextThatIsNotUTF8) {
  EXPECT_EQ(encodeDeferralMap({{"\xff", Deferral::make("a", "1")}}), std::nullopt);
  EXPECT_EQ(encodeDeferralMap({{"k", Deferral::make("a\xc3", "1")}}), std::nullopt);
}

}  // namespace
}  // namespace velmo::core
