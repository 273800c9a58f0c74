#include "core/items/LooseNumericVersion.h"

#include <gtest/gtest.h>

#include <cstdint>
#include <functional>
#include <optional>
#include <utility>

namespace velmo::core {
namespace {

using Version = LooseNumericVersion;

struct Ordered {
  const char* lhs;
  const char* rhs;
  int expected;
};

class LooseNumericVersionOrder : public ::testing::TestWithParam<Ordered> {};

TEST_P(LooseNumericVersionOrder, EveryOperatorAgreesWithCompareBothWays) {
  const Version l = GetParam().lhs;
  const Version r = GetParam().rhs;
  const int expected = GetParam().expected;
  EXPECT_EQ(Version::compare(l, r), expected);
  EXPECT_EQ(Version::compare(r, l), -expected);
  EXPECT_EQ(l < r, expected < 0);
  EXPECT_EQ(l > r, expected > 0);
  EXPECT_EQ(l <= r, expected <= 0);
  EXPECT_EQ(l >= r, expected >= 0);
  EXPECT_EQ(l == r, expected == 0);
  EXPECT_EQ(l != r, expected != 0);
  // Every equal pair below is plain numeric, where the hash must follow equality.
  if (expected == 0) {
    EXPECT_EQ(std::hash<Version>{}(l), std::hash<Version>{}(r));
  }
}

INSTANTIATE_TEST_SUITE_P(
    Vectors, LooseNumericVersionOrder,
    ::testing::Values(
        Ordered{"1.10", "1.9", 1}, Ordered{"2.0-beta", "2.0", 1}, Ordered{"2.0-beta", "2.0.1", -1},
        Ordered{"", "1.0", -1}, Ordered{"1.01", "1.1", 0}, Ordered{"01", "1", 0},
        Ordered{"a", "B", 1}, Ordered{"A", "a", -1}, Ordered{"file9.txt", "file10.txt", -1},
        Ordered{"1.2", "1.2.0", 0}, Ordered{"1.2.10", "1.2.9", 1}, Ordered{"10.0", "9.9.9", 1},
        Ordered{"18446744073709551616", "0", 0}, Ordered{"18446744073709551617", "2", -1},
        Ordered{"\u0663", "4", 1}, Ordered{"", "", 0},
        // Empty components are kept, and '-' < '.' < digits.
        Ordered{"1..2", "1.0.2", -1}, Ordered{"2-1", "2.1", -1}, Ordered{"1a", "01b", -1},
        // UTF-16 code-unit order puts U+1F600 (a surrogate pair) below U+FF21.
        Ordered{"\U0001F600", "\uFF21", -1},
        // Ill-formed UTF-8 reads as U+FFFD.
        Ordered{"\xff", "\uFFFD", 0}, Ordered{"\xff", "\uFFFC", 1}));

TEST(LooseNumericVersion, MajorComponentIsTheFirstNonEmptyWholeNumber) {
  const std::pair<const char*, std::optional<std::int64_t>> rows[] = {
      {"10.2", 10},
      {".5", 5},
      {"+3.1", 3},
      {"-2", -2},
      {"", std::nullopt},
      {".", std::nullopt},
      {"2a.1", std::nullopt},
      {" 1", std::nullopt},
      {"+-1", std::nullopt},
      {"9223372036854775807", INT64_MAX},
      {"9223372036854775808", std::nullopt}};
  for (const auto& [raw, major] : rows) EXPECT_EQ(Version(raw).majorComponent(), major) << raw;
}

}  // namespace
}  // namespace velmo::core
