#include "agent/main/AgentStop.h"

#include <gtest/gtest.h>

#include <algorithm>

#include <asio/co_spawn.hpp>
#include <asio/detached.hpp>
#include <asio/io_context.hpp>

#include "backends/fake/RecordingServiceManager.h"
#include "backends/fake/VirtualClock.h"
#include "tests/support/LogCapture.h"

namespace velmo::agent {
namespace {

using platform::Duration;
using std::chrono::hours;
using std::chrono::minutes;
using std::chrono::seconds;

// One stop, step by step: when what runs ends, a second signal, and when the
// stop is over and when it ended what ran, from the first signal.
struct StopCase {
  const char* name;
  std::optional<Duration> busyFor;  // Busy at the signal; cleared after this (never: absent).
  std::optional<Duration> secondSignalAfter;
  Duration over;
  std::optional<Duration> ends;  // Absent: what ran was never cut short.
};
void PrintTo(const StopCase& c, std::ostream* os) { *os << c.name; }

class AgentStopFixture : public ::testing::Test {
 protected:
  asio::io_context context_;
  platform::fake::VirtualClock clock_{context_};
  testing::LogCapture capture_{&clock_};
  core::AgentLifecycle lifecycle_;
  platform::fake::RecordingServiceManager manager_;
  AgentStop stop_{{context_.get_executor(), clock_, lifecycle_, manager_}};
};

class AgentStopTest : public AgentStopFixture, public ::testing::WithParamInterface<StopCase> {};

TEST_P(AgentStopTest, DrainsThenEndsWithinItsBounds) {
  const StopCase& c = GetParam();
  if (c.busyFor) stop_.setBusy("a scheduled Velmo Run, 1 tool run");
  std::optional<Duration> ending, over;
  const auto begin = clock_.elapsed();
  const auto watching = lifecycle_.subscribe([&](core::LifePhase phase) {
    if (phase == core::LifePhase::ending) ending = clock_.elapsed() - begin;
  });
  asio::co_spawn(
      context_,
      [&]() -> asio::awaitable<void> {
        co_await stop_.finished();
        over = clock_.elapsed() - begin;
      },
      asio::detached);
  stop_.request("SIGTERM");
  EXPECT_TRUE(lifecycle_.stopping());
  std::unique_ptr<platform::Timer> clear, again;
  if (c.busyFor) {
    clear = clock_.scheduleAfter(*c.busyFor, context_.get_executor(), [&] { stop_.setBusy(""); });
  }
  if (c.secondSignalAfter) {
    again = clock_.scheduleAfter(*c.secondSignalAfter, context_.get_executor(),
                                 [&] { stop_.request("SIGTERM"); });
  }
  clock_.advance(hours(2));

  EXPECT_EQ(over, c.over);
  EXPECT_EQ(ending, c.ends);
  // The service manager hears of the stop first, and is asked to wait for the drain.
  ASSERT_GE(manager_.messages.size(), 2u);
  EXPECT_EQ(manager_.messages[0], "STOPPING=1");
  EXPECT_EQ(manager_.messages[1], "EXTEND_TIMEOUT_USEC=1810000000");
}

INSTANTIATE_TEST_SUITE_P(
    Stops, AgentStopTest,
    ::testing::Values(
        StopCase{"IdleStopsAtOnce", std::nullopt, std::nullopt, seconds(0), std::nullopt},
        StopCase{"ARunEndsByItself", seconds(6), std::nullopt, seconds(6), std::nullopt},
        StopCase{"ARunOutlastsTheDrain", minutes(30) + seconds(3), std::nullopt,
                 minutes(30) + seconds(3), minutes(30)},
        StopCase{"ASecondSignalEndsTheDrain", seconds(70), seconds(60), seconds(70), seconds(60)},
        StopCase{"NothingHoldsTheStopPastItsEnd", hours(48), std::nullopt,
                 minutes(30) + AgentStop::kEndBound, minutes(30)}),
    [](const ::testing::TestParamInfo<StopCase>& info) { return info.param.name; });

TEST_F(AgentStopFixture, SaysWhatTheStopWaitsFor) {
  stop_.setBusy("1 tool run");
  EXPECT_TRUE(manager_.messages.empty()) << "only a stop says its own lines";
  stop_.request("SIGINT");
  EXPECT_EQ(manager_.messages.back(), "STATUS=Stopping: waiting for 1 tool run.");
  const auto infos = capture_.unified().messages(platform::UnifiedLogType::info);
  EXPECT_NE(std::find(infos.begin(), infos.end(),
                      "Received SIGINT; stopping once what runs has ended (1 tool run), for at "
                      "most 30 minutes. Nothing new starts meanwhile."),
            infos.end());
  stop_.request("SIGINT");
  EXPECT_EQ(manager_.messages.back(), "STATUS=Stopping: ending 1 tool run.");
  stop_.setBusy("");
  EXPECT_EQ(manager_.messages.back(), "STATUS=Stopping.");
}

}  // namespace
}  // namespace velmo::agent
