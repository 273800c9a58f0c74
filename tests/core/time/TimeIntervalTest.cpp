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

INSTANTIATE_TEST_SUITE_P(
    Table, DurationDescription,
    ::testing::Values(IntervalCase{0, "0 seconds"}, IntervalCase{0.9, "0 seconds"},
                      IntervalCase{1, "1 second"}, IntervalCase{59.99, "59 seconds"},
                      IntervalCase{60, "1 minute"}, IntervalCase{61, "1 minute, 1 second"},
                      IntervalCase{3600, "1 hour"}, IntervalCase{14400, "4 hours"},
                      IntervalCase{86400, "1 day"},
                      IntervalCase{90061, "1 day, 1 hour, 1 minute, 1 second"},
                      IntervalCase{604800, "1 week"},
                      IntervalCase{1209599, "1 week, 6 days, 23 hours, 59 minutes, 59 seconds"},
                      IntervalCase{1209600, "2 weeks"}, IntervalCase{1296000, "2 weeks, 1 day"},
                      // Outside the callers' contract: clamped, never undefined.
                      IntervalCase{-5, "0 seconds"}));

}  // namespace
}  // namespace velmo::core
