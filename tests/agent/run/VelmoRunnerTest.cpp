#include "agent/runner/VelmoRunner.h"

#include <gtest/gtest.h>
#include <signal.h>

#include <algorithm>
#include <functional>

#include <asio/co_spawn.hpp>
#include <asio/detached.hpp>
#include <asio/io_context.hpp>

#include "backends/fake/FakeProcessLauncher.h"
#include "backends/fake/VirtualClock.h"
#include "tests/support/LogCapture.h"

namespace velmo::agent::run {
namespace {

using platform::Duration;
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
  core::AgentLifecycle lifecycle_;
  VelmoRunner runner_{launcher_, clock_, "/tool/velmo", &lifecycle_};
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

// What happens to a 6 s tool run under a 60 s limit when, 3 s in, the wall
// clock is set or the agent starts or ends its stop.
struct DuringRunCase {
  const char* name;
  std::function<void(platform::fake::VirtualClock&, core::AgentLifecycle&)> event;
  int result;
  std::vector<int> signals;
  Duration took;
};
void PrintTo(const DuringRunCase& c, std::ostream* os) { *os << c.name; }

class DuringRun : public VelmoRunnerTest, public ::testing::WithParamInterface<DuringRunCase> {};

TEST_P(DuringRun, OnlyElapsedTimeAndTheStopsEndEndARun) {
  const DuringRunCase& c = GetParam();
  launcher_.enqueue({.exitAfter = seconds(6), .exitAfterTerminate = seconds(1)});
  std::optional<int> result;
  const auto begin = clock_.elapsed();
  start(result, core::TimeInterval(60.0));
  clock_.advance(seconds(3));
  c.event(clock_, lifecycle_);
  std::optional<Duration> took;
  while (!result && clock_.elapsed() - begin < std::chrono::minutes(5)) {
    clock_.advance(std::chrono::milliseconds(500));
    if (result && !took) took = clock_.elapsed() - begin;
  }
  EXPECT_EQ(result, c.result);
  EXPECT_EQ(took, c.took);
  EXPECT_EQ(launcher_.launches()[0].signals, c.signals);
}

const auto stepBy = [](Duration step) {
  return [step](platform::fake::VirtualClock& clock, core::AgentLifecycle&) {
    clock.stepWallClock(step);
  };
};
const auto stopUntil = [](core::LifePhase phase) {
  return [phase](platform::fake::VirtualClock&, core::AgentLifecycle& lifecycle) {
    lifecycle.advance(core::LifePhase::draining);
    lifecycle.advance(phase);
  };
};

INSTANTIATE_TEST_SUITE_P(
    Events, DuringRun,
    ::testing::Values(
        DuringRunCase{"WallClockTwoHoursAhead", stepBy(std::chrono::hours(2)), 0, {}, seconds(6)},
        DuringRunCase{"WallClockTwoHoursBack", stepBy(-std::chrono::hours(2)), 0, {}, seconds(6)},
        DuringRunCase{"AStopDrains", stopUntil(core::LifePhase::draining), 0, {}, seconds(6)},
        DuringRunCase{"TheStopsEndEndsIt",
                      stopUntil(core::LifePhase::ending),
                      VelmoRunner::kTimedOut,
                      {SIGTERM, SIGKILL},
                      seconds(4)}),
    [](const ::testing::TestParamInfo<DuringRunCase>& info) { return info.param.name; });

TEST_F(VelmoRunnerTest, AStoppingAgentStartsNoToolAndSaysSoOnce) {
  lifecycle_.advance(core::LifePhase::draining);
  std::optional<int> first, second;
  start(first, std::nullopt);
  start(second, core::TimeInterval(60.0));
  clock_.advance(seconds(1));
  EXPECT_EQ(first, VelmoRunner::kNotStarted);
  EXPECT_EQ(second, VelmoRunner::kNotStarted);
  EXPECT_TRUE(launcher_.launches().empty());
  const auto infos = capture_.unified().messages(platform::UnifiedLogType::info);
  EXPECT_EQ(std::count_if(infos.begin(), infos.end(),
                          [](const std::string& line) {
                            return line.starts_with("The agent is stopping: Velmo update-all");
                          }),
            1);
}

}  // namespace
}  // namespace velmo::agent::run
