#include "core/time/Iso8601DateFormatter.h"

#include <gtest/gtest.h>

namespace velmo::core {
namespace {

using std::chrono::hours;
using std::chrono::seconds;

const TimePoint kT{seconds(1773151509)};  // 2026-03-10T14:05:09Z

struct ParseCase {
  const char* text;
  std::optional<TimePoint> expected;
};

void PrintTo(const ParseCase& c, std::ostream* os) { *os << c.text; }

class Iso8601Parse : public ::testing::TestWithParam<ParseCase> {};

TEST_P(Iso8601Parse, IsStrictAboutForm) {
  EXPECT_EQ(Iso8601DateFormatter::date(GetParam().text), GetParam().expected);
}

INSTANTIATE_TEST_SUITE_P(
    Vectors, Iso8601Parse,
    ::testing::Values(ParseCase{"2026-03-10T14:05:09Z", kT}, ParseCase{"2026-03-10T14:05:09z", kT},
                      ParseCase{"2026-03-10T14:05:09+01:00", kT - hours(1)},
                      ParseCase{"2026-03-10T14:05:09+0100", kT - hours(1)},
                      ParseCase{"2026-03-10T14:05:09+01", kT - hours(1)},
                      ParseCase{"2026-03-10T14:05:09-05:00", kT + hours(5)},
                      ParseCase{"2024-02-29T00:00:00Z", TimePoint(seconds(1709164800))},
                      ParseCase{"2026-03-10T14:05:09.123Z", std::nullopt},
                      ParseCase{"2026-03-10T14:05Z", std::nullopt},
                      ParseCase{"2026-03-10T14:05:09", std::nullopt},
                      ParseCase{"2026-03-10 14:05:09Z", std::nullopt},
                      ParseCase{"2026-03-10t14:05:09Z", std::nullopt},
                      ParseCase{"2026-02-30T14:05:09Z", std::nullopt},
                      ParseCase{"2026-03-10T24:00:00Z", std::nullopt},
                      ParseCase{"2026-03-10T14:05:09Zjunk", std::nullopt},
                      ParseCase{"2026-03-10T14:05:09+1:00", std::nullopt},
                      // Beyond what an instant of 64-bit nanoseconds holds.
                      ParseCase{"9999-12-31T23:59:59Z", std::nullopt},
                      ParseCase{"0001-01-01T00:00:00Z", std::nullopt}, ParseCase{"", std::nullopt},
                      ParseCase{"not a date at all!!", std::nullopt}));

}  // namespace
}  // namespace velmo::core
