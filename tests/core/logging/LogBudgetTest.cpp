#include "core/logging/LogBudget.h"

#include <gtest/gtest.h>

#include <asio/io_context.hpp>

#include "backends/fake/VirtualClock.h"
#include "core/Debouncer.h"
#include "tests/support/LogCapture.h"

namespace velmo::core {
namespace {

using std::chrono::hours;
using std::chrono::seconds;

// Budgets and debounces count elapsed time: a step of the wall clock, either
// way, neither opens a new minute nor fires a debounce early or late.
class ElapsedTimeOnly : public ::testing::TestWithParam<platform::Duration> {
 protected:
  asio::io_context context_;
  platform::fake::VirtualClock clock_{context_};
  testing::LogCapture capture_{&clock_};
};

TEST_P(ElapsedTimeOnly, ALogBudgetsMinuteIgnoresTheWallClock) {
  const CustomLogger logger("Test");
  LogBudget budget(logger, clock_, context_.get_executor(), 2);
  EXPECT_TRUE(budget.admit("post", "posts"));
  EXPECT_TRUE(budget.admit("post", "posts"));
  clock_.stepWallClock(GetParam());
  clock_.advance(seconds(30));
  EXPECT_FALSE(budget.admit("post", "posts"));
  clock_.advance(seconds(31));
  EXPECT_TRUE(budget.admit("post", "posts"));
}

TEST_P(ElapsedTimeOnly, ADebounceFiresAfterItsDelay) {
  int fired = 0;
  Debouncer debouncer(context_.get_executor(), clock_, seconds(5), [&fired] { ++fired; });
  debouncer.trigger();
  clock_.advance(seconds(2));
  clock_.stepWallClock(GetParam());
  clock_.advance(seconds(2));
  EXPECT_EQ(fired, 0);
  clock_.advance(seconds(1));
  EXPECT_EQ(fired, 1);
}

INSTANTIATE_TEST_SUITE_P(Steps, ElapsedTimeOnly, ::testing::Values(hours(2), -hours(2)));

}  // namespace
}  // namespace velmo::core
