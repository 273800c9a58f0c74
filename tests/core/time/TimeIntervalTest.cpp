#include "core/time/TimeInterval.h"

#include <gtest/gtest.h>

namespace velmo::core {
namespace {

TEST(DurationDescription, NamesEveryUnitThatApplies) {
  EXPECT_EQ(durationDescription(TimeInterval(0)), "0 seconds");
  EXPECT_EQ(durationDescription(TimeInterval(604800)), "1 week");
}

}  // namespace
}  // namespace velmo::core
