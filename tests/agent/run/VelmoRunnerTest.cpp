#include "agent/run/VelmoRunner.h"

#include <gtest/gtest.h>
#include <signal.h>

#include <asio/co_spawn.hpp>
#include <asio/detached.hpp>
#include <asio/io_context.hpp>

#include "platform/fake/FakeProcessLauncher.h"
#include "platform/fake/VirtualClock.h"
#include "tests/support/LogCapture.h"

namespace velmo::agent::run {
namespace {

using std::chrono::seconds;

class VelmoRunnerTest : public ::testing::Test {
 protected:
  // Starts a run on the loop; `result` is set when it returns.
  void start(std::optional<int>& result, std::optional<core::TimeInterval> timeout,
             platform::TimePoint* finished = nullptr) {
    asio::co_spawn(
        context_,
        [&, timeout, finished]() -> asio::awaitable<void> {
          // Braced lists inside co_await trip GCC 12; build the vector first.
          std::vector<std::string> arguments{"update-all"};
          result = co_await runner_.run(arguments, timeout);
          if (finished) *finished = clock_.now();
        },
        asio::detached);
  }

  asio::io_context context_;
  platform::fake::VirtualClock clock_{context_};
  testing::LogCapture capture_{&clock_};
  platform::fake::FakeProcessLauncher launcher_{clock_};
  VelmoRunner runner_{launcher_, clock_, "/tool/velmo"};
};

// A tool that ignores SIGTERM gets SIGKILL after the grace, and the run is a time-out.
TEST_F(VelmoRunnerTest, ATermIgnoringToolIsKilledAfterTheGrace) {
  launcher_.enqueue({});
  std::optional<int> result;
  platform::TimePoint finished;
  const auto begin = clock_.now();
  start(result, core::TimeInterval(1.0), &finished);
  clock_.advance(std::chrono::hours(1));

  EXPECT_EQ(result, 124);
  EXPECT_EQ(finished - begin, seconds(6));
  ASSERT_EQ(launcher_.launches().size(), 1u);
  EXPECT_EQ(launcher_.launches()[0].signals, (std::vector<int>{SIGTERM, SIGKILL}));
  EXPECT_EQ(capture_.errors(),
            (std::vector<std::string>{
                "Velmo process (pid: 1000) timed out after 1 seconds; sending SIGTERM.",
                "Velmo process (pid: 1000) did not exit after SIGTERM; sending SIGKILL."}));
}

}  // namespace
}  // namespace velmo::agent::run
