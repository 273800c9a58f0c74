#include "core/values/Bundle.h"

#include <gtest/gtest.h>

namespace velmo::core {
namespace {

TEST(Bundle, VersionStringSaysUnknownForAMissingOrEmptyPart) {
  EXPECT_EQ((Bundle{"id", "1.4", "205"}.versionString()), "1.4.205");
  EXPECT_EQ((Bundle{"id", "1.4", ""}.versionString()), "1.4.Unknown");
  EXPECT_EQ((Bundle{"id", std::nullopt, std::nullopt}.versionString()), "Unknown.Unknown");
}

}  // namespace
}  // namespace velmo::core
