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

using platform::fake::FakeProcessScript;
using std::chrono::milliseconds;
using std::chrono::seconds;

constexpr const char* kTermLine =
    "Velmo process (pid: 1000) timed out after 1 seconds; sending SIGTERM.";
constexpr const char* kKillLine =
    "Velmo process (pid: 1000) did not exit after SIGTERM; sending SIGKILL.";

struct RunnerCase {
  const char* name;
  FakeProcessScript script;
  std::optional<double> timeout;
  int expectedResult;
  platform::Duration expectedElapsed;
  std::vector<std::string> expectedErrors;
  std::vector<int> expectedSignals;
};

void PrintTo(const RunnerCase& c, std::ostream* os) { *os << c.name; }

class VelmoRunnerTable : public ::testing::TestWithParam<RunnerCase> {
 protected:
  asio::io_context context_;
  platform::fake::VirtualClock clock_{context_};
  platform::fake::FakeProcessLauncher launcher_{clock_};
  VelmoRunner runner_{launcher_, clock_, "/tool/velmo"};
};

TEST_P(VelmoRunnerTable, SupervisesAndEscalates) {
  const RunnerCase& c = GetParam();
  testing::LogCapture capture(&clock_);
  launcher_.enqueue(c.script);
  std::optional<int> result;
  std::optional<core::TimeInterval> timeout;
  if (c.timeout) timeout = core::TimeInterval(*c.timeout);
  const auto start = clock_.now();
  platform::TimePoint finished;
  asio::co_spawn(
      context_,
      [&]() -> asio::awaitable<void> {
        // Braced lists inside co_await trip GCC 12; build the vector first.
        std::vector<std::string> arguments{"update-all", "--quiet"};
        result = co_await runner_.run(arguments, timeout);
        finished = clock_.now();
      },
      asio::detached);
  clock_.advance(std::chrono::hours(1));

  ASSERT_TRUE(result.has_value());
  EXPECT_EQ(*result, c.expectedResult);
  EXPECT_EQ(finished - start, c.expectedElapsed);
  EXPECT_EQ(capture.errors(), c.expectedErrors);
  ASSERT_EQ(launcher_.launches().size(), 1u);
  EXPECT_EQ(launcher_.launches()[0].executable, "/tool/velmo");
  EXPECT_EQ(launcher_.launches()[0].arguments, (std::vector<std::string>{"update-all", "--quiet"}));
  EXPECT_EQ(launcher_.launches()[0].signals, c.expectedSignals);
  // Output to standard output: none; the tool is run quietly.
  EXPECT_EQ(capture.standardOutput().find("Running"), std::string::npos);
}

INSTANTIATE_TEST_SUITE_P(
    Table, VelmoRunnerTable,
    ::testing::Values(
        RunnerCase{"ExitsAtOnceWithLimit",
                   {.exitAfter = seconds(0), .exitStatus = 0},
                   60.0,
                   0,
                   seconds(0),
                   {},
                   {}},
        RunnerCase{"Status7WithLimitIsNoError",
                   {.exitAfter = seconds(3), .exitStatus = 7},
                   60.0,
                   7,
                   milliseconds(3000),
                   {},
                   {}},
        RunnerCase{"NoLimitWaitsAsLongAsItTakes",
                   {.exitAfter = seconds(1800), .exitStatus = 2},
                   std::nullopt,
                   2,
                   seconds(1800),
                   {},
                   {}},
        RunnerCase{"LeavesOnTermWithinFirstPoll",
                   {.exitAfterTerminate = milliseconds(100), .statusOnTerminate = 0},
                   1.0,
                   124,
                   milliseconds(1200),
                   {kTermLine},
                   {SIGTERM}},
        RunnerCase{"IgnoresTermThenKilled",
                   {},
                   1.0,
                   124,
                   milliseconds(6000),
                   {kTermLine, kKillLine},
                   {SIGTERM, SIGKILL}},
        RunnerCase{"SurvivesEvenKill",
                   {.ignoresKill = true},
                   1.0,
                   124,
                   milliseconds(7000),
                   {kTermLine, kKillLine},
                   {SIGTERM, SIGKILL}},
        RunnerCase{"FractionalLimitPrintsWholeSeconds",
                   {.exitAfterTerminate = seconds(0)},
                   1.9,
                   124,
                   milliseconds(2000),
                   {kTermLine},
                   {SIGTERM}},
        RunnerCase{"ZeroLimitTimesOutAtFirstCheck",
                   {.exitAfterTerminate = seconds(0)},
                   0.0,
                   124,
                   milliseconds(0),
                   {"Velmo process (pid: 1000) timed out after 0 seconds; sending SIGTERM."},
                   {SIGTERM}},
        RunnerCase{"NegativeLimitCountsAsZero",
                   {.exitAfterTerminate = seconds(0)},
                   -3.0,
                   124,
                   milliseconds(0),
                   {"Velmo process (pid: 1000) timed out after 0 seconds; sending SIGTERM."},
                   {SIGTERM}}),
    [](const auto& info) { return std::string(info.param.name); });

class VelmoRunnerTest : public ::testing::Test {
 protected:
  int runToEnd(std::vector<std::string> arguments, std::optional<core::TimeInterval> timeout) {
    std::optional<int> result;
    asio::co_spawn(
        context_,
        [&]() -> asio::awaitable<void> { result = co_await runner_.run(arguments, timeout); },
        asio::detached);
    clock_.advance(std::chrono::hours(1));
    EXPECT_TRUE(result.has_value());
    return result.value_or(-999);
  }

  asio::io_context context_;
  platform::fake::VirtualClock clock_{context_};
  platform::fake::FakeProcessLauncher launcher_{clock_};
  VelmoRunner runner_{launcher_, clock_, "/tool/velmo"};
};

TEST_F(VelmoRunnerTest, LogsTheCommandAndTheFinishLineAtDebug) {
  testing::LogCapture capture(&clock_);
  launcher_.enqueue({.exitAfter = seconds(61), .exitStatus = 0});
  EXPECT_EQ(runToEnd({"compare", "com.example.app", "--fail"}, core::TimeInterval(300.0)), 0);
  EXPECT_EQ(capture.debugs(),
            (std::vector<std::string>{
                "Running Velmo with arguments: compare com.example.app --fail",
                "Velmo run compare com.example.app --fail finished in 1 minute, 1 second"}));
  EXPECT_TRUE(capture.errors().empty());
}

TEST_F(VelmoRunnerTest, ALaunchFailureIsLoggedAndIsNeitherSuccessNorTimeOut) {
  testing::LogCapture capture(&clock_);
  launcher_.failNextLaunch("no such file");
  const int result = runToEnd({"install"}, core::TimeInterval(5400.0));
  EXPECT_EQ(result, VelmoRunner::kLaunchFailed);
  EXPECT_NE(result, 0);
  EXPECT_NE(result, VelmoRunner::kTimedOut);
  EXPECT_EQ(capture.errors(),
            std::vector<std::string>{"Failed to start Velmo process: no such file"});
  EXPECT_EQ(capture.debugs().back(), "Velmo run install finished in 0 seconds");
}

TEST_F(VelmoRunnerTest, OverlappingCallsAreIndependent) {
  launcher_.enqueue({.exitAfter = seconds(10), .exitStatus = 3});
  launcher_.enqueue({.exitAfter = seconds(2), .exitStatus = 4});
  std::vector<int> order;
  for (int i = 0; i < 2; ++i) {
    asio::co_spawn(
        context_,
        [&]() -> asio::awaitable<void> {
          std::vector<std::string> arguments{"x"};
          order.push_back(co_await runner_.run(arguments, std::nullopt));
        },
        asio::detached);
  }
  clock_.advance(seconds(30));
  EXPECT_EQ(order, (std::vector<int>{4, 3}));
}

}  // namespace
}  // namespace velmo::agent::run
