#include "platform/fake/VirtualClock.h"

#include <gtest/gtest.h>

#include <asio/co_spawn.hpp>
#include <asio/detached.hpp>
#include <asio/io_context.hpp>
#include <asio/strand.hpp>

namespace velmo::platform::fake {
namespace {

using std::chrono::hours;
using std::chrono::minutes;
using std::chrono::seconds;

class VirtualClockTest : public ::testing::Test {
 protected:
  asio::io_context context_;
  VirtualClock clock_{context_};
};

TEST_F(VirtualClockTest, FiresTimersInOrderAtTheirOwnInstants) {
  std::vector<std::pair<int, TimePoint>> fired;
  const TimePoint start = clock_.now();
  auto late = clock_.scheduleAfter(minutes(10), context_.get_executor(),
                                   [&] { fired.emplace_back(2, clock_.now()); });
  auto early = clock_.scheduleAfter(minutes(5), context_.get_executor(),
                                    [&] { fired.emplace_back(1, clock_.now()); });
  clock_.advance(minutes(4));
  EXPECT_TRUE(fired.empty());
  clock_.advance(hours(1));
  ASSERT_EQ(fired.size(), 2u);
  EXPECT_EQ(fired[0], std::pair(1, start + minutes(5)));
  EXPECT_EQ(fired[1], std::pair(2, start + minutes(10)));
  EXPECT_EQ(clock_.now(), start + minutes(64));
}

TEST_F(VirtualClockTest, CancelledOrDroppedTimersNeverFire) {
  int fired = 0;
  auto cancelled = clock_.scheduleAfter(seconds(1), context_.get_executor(), [&] { ++fired; });
  cancelled->cancel();
  clock_.scheduleAfter(seconds(1), context_.get_executor(), [&] { ++fired; }).reset();
  EXPECT_EQ(clock_.pendingTimers(), 0u);
  clock_.advance(seconds(5));
  EXPECT_EQ(fired, 0);
}

TEST_F(VirtualClockTest, ATimerArmedByAnActionFiresWithinTheSameAdvance) {
  std::unique_ptr<Timer> second;
  int fired = 0;
  auto first = clock_.scheduleAfter(seconds(1), context_.get_executor(), [&] {
    second = clock_.scheduleAfter(seconds(0), context_.get_executor(), [&] { ++fired; });
  });
  clock_.advance(seconds(1));
  EXPECT_EQ(fired, 1);
}

TEST_F(VirtualClockTest, EightHoursOfOneSecondSleepsPassInstantly) {
  int wakes = 0;
  auto strand = asio::make_strand(context_.get_executor());
  asio::co_spawn(
      strand,
      [&]() -> asio::awaitable<void> {
        for (;;) {
          co_await clock_.sleep(seconds(1));
          ++wakes;
        }
      },
      asio::detached);
  clock_.advance(hours(8));
  EXPECT_EQ(wakes, 8 * 3600);
}

}  // namespace
}  // namespace velmo::platform::fake
