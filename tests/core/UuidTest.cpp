#include "core/Uuid.h"

#include <gtest/gtest.h>

#include <unordered_set>

namespace velmo::core {
namespace {

TEST(Uuid, StringIsUpperCaseHexInFiveGroups) {
  EXPECT_EQ(Uuid().uuidString(), "00000000-0000-0000-0000-000000000000");
  const Uuid uuid({0x00, 0x11, 0x22, 0x33, 0x44, 0x55, 0x66, 0x77, 0x88, 0x99, 0xaa, 0xbb, 0xcc,
                   0xdd, 0xee, 0xff});
  EXPECT_EQ(uuid.uuidString(), "00112233-4455-6677-8899-AABBCCDDEEFF");
}

TEST(Uuid, RandomOnesAreVersion4AndDistinct) {
  std::unordered_set<Uuid> seen;
  for (int i = 0; i < 100; ++i) {
    const auto uuid = Uuid::random();
    EXPECT_EQ(uuid.bytes()[6] >> 4, 4);
    EXPECT_EQ(uuid.bytes()[8] >> 6, 2);  // RFC 4122 variant
    EXPECT_TRUE(seen.insert(uuid).second) << uuid.uuidString();
  }
}

}  // namespace
}  // namespace velmo::core
