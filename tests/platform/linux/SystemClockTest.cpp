#include "platform/linux/SystemClock.h"

#include <gtest/gtest.h>

#include <asio/io_context.hpp>

namespace velmo::platform::linux {
namespace {

using std::chrono::milliseconds;

TEST(SystemClock, RunsTheActionAfterTheDelayAndNotWhenCancelled) {
  asio::io_context context;
  SystemClock clock;
  int fired = 0;
  const auto start = std::chrono::steady_clock::now();
  auto kept = clock.scheduleAfter(milliseconds(30), context.get_executor(), [&] { ++fired; });
  auto cancelled =
      clock.scheduleAfter(milliseconds(10), context.get_executor(), [&] { fired += 10; });
  cancelled->cancel();
  context.run_for(std::chrono::seconds(5));
  EXPECT_EQ(fired, 1);
  EXPECT_GE(std::chrono::steady_clock::now() - start, milliseconds(30));
}

}  // namespace
}  // namespace velmo::platform::linux
