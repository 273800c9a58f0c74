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

}  // namespace
}  // namespace velmo::core
