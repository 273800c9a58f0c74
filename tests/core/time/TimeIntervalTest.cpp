#include "core/time/TimeInterval.h"

#include <gtest/gtest.h>

namespace velmo::core {
namespace {

struct IntervalCase {
  double seconds;
  const char* expected;
};

void PrintTo(const IntervalCase& c, std::ostream* os) { *os << c.seconds << " s"; }

class DurationDescription : public ::testing::TestWithParam<IntervalCase> {};

TEST_P(DurationDescription, NamesEveryUnitThatApplies) {
  EXPECT_EQ(durationDescription(TimeInterval(GetParam().seconds)), GetParam().expected);
}

INSTANTIATE_TEST_SUITE_P(Table, DurationDescription,
                         ::testing::Values(IntervalCase{0, "0 seconds"},
                                           IntervalCase{604800, "1 week"}));

}  // namespace
}  // namespace velmo::core
