#include "core/files/WriteRetry.h"

#include <gtest/gtest.h>

#include <asio/io_context.hpp>

#include "backends/fake/VirtualClock.h"
#include "tests/support/LogCapture.h"

namespace velmo::core {
namespace {

using std::chrono::seconds;

// A write that keeps failing is tried again after 1, 2, 4 … seconds, never
// more than 5 minutes apart, and the episode is said once when it starts and
// once when it ends.
TEST(WriteRetry, BacksOffOnElapsedTimeAndSaysTheEpisodeTwice) {
  asio::io_context context;
  platform::fake::VirtualClock clock(context);
  testing::LogCapture capture(&clock);
  std::vector<long> attempts;  // Seconds since the first failure.
  const auto start = clock.now();
  bool failing = true;
  std::unique_ptr<WriteRetry> retry;
  retry = std::make_unique<WriteRetry>(
      CustomLogger("Test"), clock, context.get_executor(), "the file", [&] {
        attempts.push_back(std::chrono::duration_cast<seconds>(clock.now() - start).count());
        failing ? retry->failed("Failed: full") : retry->succeeded();
      });
  retry->failed("Failed: full");
  clock.advance(std::chrono::minutes(20));
  EXPECT_EQ(attempts, (std::vector<long>{1, 3, 7, 15, 31, 63, 127, 255, 511, 811, 1111}));
  EXPECT_EQ(capture.errors(), std::vector<std::string>{"Failed: full"});
  EXPECT_EQ(retry->failedAttempts(), 12u);

  failing = false;
  clock.advance(std::chrono::minutes(5));
  EXPECT_EQ(attempts.back(), 1411);
  EXPECT_FALSE(retry->retryPending());
  EXPECT_NE(capture.standardOutput().find("Saved the file after 12 failed attempts."),
            std::string::npos);
  // A new episode starts from the first delay and is said again.
  retry->failed("Failed: full");
  EXPECT_EQ(capture.errors().size(), 2u);
  clock.advance(seconds(1));
  EXPECT_EQ(attempts.back(), 1501);
}

}  // namespace
}  // namespace velmo::core
