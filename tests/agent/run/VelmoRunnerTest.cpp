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
using std::chrono::minutes;
using std::chrono::seconds;
using ms = std::chrono::milliseconds;

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

struct RunnerCase {
  const char* name;
  FakeProcessScript script;
  std::optional<double> timeout;
  int result;
  platform::Duration elapsed;
  std::vector<int> signals;
  const char* shownLimit = "1";  // Whole seconds in the time-out line.
};

void PrintTo(const RunnerCase& c, std::ostream* os) { *os << c.name; }

FakeProcessScript exits(platform::Duration after, int status) {
  return {.exitAfter = after, .exitStatus = status};
}
FakeProcessScript leavesOnTerm(platform::Duration after, int status = 15) {
  return {.exitAfterTerminate = after, .statusOnTerminate = status};
}

class VelmoRunnerTable : public VelmoRunnerTest,
                         public ::testing::WithParamInterface<RunnerCase> {};

TEST_P(VelmoRunnerTable, SupervisesAndEscalates) {
  const RunnerCase& c = GetParam();
  launcher_.enqueue(c.script);
  std::optional<int> result;
  platform::TimePoint finished;
  const auto begin = clock_.now();
  std::optional<core::TimeInterval> timeout;
  if (c.timeout) timeout = core::TimeInterval(*c.timeout);
  start(result, timeout, &finished);
  clock_.advance(std::chrono::hours(1));

  EXPECT_EQ(result, c.result);
  EXPECT_EQ(finished - begin, c.elapsed);
  ASSERT_EQ(launcher_.launches().size(), 1u);
  EXPECT_EQ(launcher_.launches()[0].signals, c.signals);
  std::vector<std::string> errors;
  if (!c.signals.empty()) {
    errors.push_back("Velmo process (pid: 1000) timed out after " + std::string(c.shownLimit) +
                     " seconds; sending SIGTERM.");
  }
  // The group gets SIGKILL after the grace in any case; the line only when the tool itself stayed.
  if (!c.signals.empty() && !c.script.exitAfterTerminate) {
    errors.push_back("Velmo process (pid: 1000) did not exit after SIGTERM; sending SIGKILL.");
  }
  EXPECT_EQ(capture_.errors(), errors);
}

INSTANTIATE_TEST_SUITE_P(
    Table, VelmoRunnerTable,
    ::testing::Values(
        RunnerCase{"Status7WithLimitIsNoError", exits(seconds(3), 7), 60.0, 7, seconds(3), {}},
        RunnerCase{"NoLimitWaitsAsLongAsItTakes", exits(minutes(30), 2), {}, 2, minutes(30), {}},
        // Even a status of 0 after SIGTERM is a time-out.
        RunnerCase{
            "LeavesOnTerm", leavesOnTerm(ms(100), 0), 1.0, 124, ms(1200), {SIGTERM, SIGKILL}},
        RunnerCase{"IgnoresTermThenKilled", {}, 1.0, 124, seconds(6), {SIGTERM, SIGKILL}},
        RunnerCase{
            "SurvivesEvenKill", {.ignoresKill = true}, 1.0, 124, seconds(7), {SIGTERM, SIGKILL}},
        RunnerCase{
            "FractionalLimit", leavesOnTerm(seconds(0)), 1.9, 124, seconds(2), {SIGTERM, SIGKILL}},
        RunnerCase{
            "ZeroLimit", leavesOnTerm(seconds(0)), 0.0, 124, seconds(0), {SIGTERM, SIGKILL}, "0"},
        RunnerCase{"NegativeLimit",
                   leavesOnTerm(seconds(0)),
                   -3.0,
                   124,
                   seconds(0),
                   {SIGTERM, SIGKILL},
                   "0"}),
    [](const auto& info) { return std::string(info.param.name); });

}  // namespace
}  // namespace velmo::agent::run
