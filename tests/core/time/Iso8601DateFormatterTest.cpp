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

INSTANTIATE_TEST_SUITE_P(Vectors, Iso8601Parse,
                         ::testing::Values(ParseCase{"2026-03-10T14:05:09+0100", kT - hours(1)},
                                           ParseCase{"2026-03-10T14:05:09+01", kT - hours(1)},
                                           ParseCase{"2026-03-10T14:05:09+1:00", std::nullopt}));

}  // namespace
}  // namespace velmo::core
