#include "agent/run/RunGate.h"

#include <gtest/gtest.h>

#include <algorithm>

#include <asio/co_spawn.hpp>
#include <asio/detached.hpp>
#include <asio/io_context.hpp>

#include "backends/fake/VirtualClock.h"
#include "tests/support/LogCapture.h"

namespace velmo::agent::run {
namespace {

using std::chrono::hours;
using std::chrono::minutes;
using std::chrono::seconds;
using Events = std::vector<std::string>;

constexpr const char* kUnlocked = "RunGate unlocked (operation complete).";

// At `at` from the start, `name` asks for the gate with an operation of
// `length`; a null name stops the gate instead.
struct Step {
  platform::Duration at;
  const char* name;
  platform::Duration length{};
  platform::Duration maxDuration = hours(1);
};

struct GateCase {
  const char* name;
  std::vector<Step> steps;
  Events events;  // Once all is done.
  std::size_t forcedUnlocks;
  long unlocks;  // Forced ones included.
};

void PrintTo(const GateCase& c, std::ostream* os) { *os << c.name; }

class RunGateTest : public ::testing::TestWithParam<GateCase> {
 protected:
  // Requests the gate now with an operation that takes `length` of virtual time.
  void request(const std::string& name, platform::Duration length, platform::Duration maxDuration) {
    RunGate::Operation operation = [this, name, length]() -> asio::awaitable<void> {
      events_.push_back(name + " runs");
      co_await clock_.sleep(length);
      events_.push_back(name + " done");
    };
    asio::co_spawn(
        context_,
        [this, name, operation, maxDuration]() -> asio::awaitable<void> {
          co_await gate_.request(operation, core::TimeInterval(maxDuration));
          events_.push_back(name + " returned");
        },
        asio::detached);
    clock_.runUntilIdle();
  }

  long count(const std::string& line) const {
    const auto debugs = capture_.debugs();
    return std::count(debugs.begin(), debugs.end(), line);
  }

  asio::io_context context_;
  platform::fake::VirtualClock clock_{context_};
  testing::LogCapture capture_{&clock_};
  RunGate gate_{context_.get_executor(), clock_};
  Events events_;
};

TEST_P(RunGateTest, ServesOneHolderAtATime) {
  const auto start = clock_.elapsed();
  for (const auto& step : GetParam().steps) {
    clock_.advance(step.at - (clock_.elapsed() - start));
    if (step.name) {
      request(step.name, step.length, step.maxDuration);
    } else {
      gate_.stop();
      clock_.runUntilIdle();
    }
  }
  clock_.advance(hours(6));
  EXPECT_EQ(events_, GetParam().events);
  EXPECT_EQ(capture_.errors().size(), GetParam().forcedUnlocks);
  EXPECT_EQ(count(kUnlocked), GetParam().unlocks);
}

INSTANTIATE_TEST_SUITE_P(
    Table, RunGateTest,
    ::testing::Values(
        // A second pass of 40 min: the holder would stay 80 min; the late end unlocks nothing.
        GateCase{"TheWatchdogCoversAllPassesTogether",
                 {{minutes(0), "A", minutes(40)}, {minutes(10), "B", seconds(1)}},
                 {"A runs", "A done", "A runs", "B returned", "A done", "A returned"},
                 1,
                 1},
        GateCase{"AMarkGivesOneMorePassOnly",
                 {{minutes(0), "A", minutes(10)}, {minutes(5), "B", seconds(1)}},
                 {"A runs", "A done", "A runs", "A done", "A returned", "B returned"},
                 0,
                 1},
        // A, freed at 60 min, ends inside C's stay: D must still wait for C.
        GateCase{"ALateEndLeavesTheNextHolderAlone",
                 {{minutes(0), "A", minutes(90)},
                  {minutes(70), "C", minutes(40), hours(3)},
                  {minutes(100), "D", seconds(1)}},
                 {"A runs", "C runs", "A done", "A returned", "C done", "C runs", "C done",
                  "C returned", "D returned"},
                 1,
                 2},
        GateCase{"AStopDisarmsTheWatchdog",
                 {{minutes(0), "A", minutes(90)}, {minutes(10), nullptr}},
                 {"A runs", "A done", "A returned"},
                 0,
                 1}),
    [](const auto& info) { return std::string(info.param.name); });

}  // namespace
}  // namespace velmo::agent::run
