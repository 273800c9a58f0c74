#include "agent/run/RunGate.h"

#include <gtest/gtest.h>

#include <algorithm>

#include <asio/co_spawn.hpp>
#include <asio/detached.hpp>
#include <asio/io_context.hpp>

#include "platform/fake/VirtualClock.h"
#include "tests/support/LogCapture.h"

namespace velmo::agent::run {
namespace {

using std::chrono::hours;
using std::chrono::minutes;
using std::chrono::seconds;
using Events = std::vector<std::string>;

constexpr const char* kLocked = "RunGate locked (starting operation).";
constexpr const char* kUnlocked = "RunGate unlocked (operation complete).";
constexpr const char* kMarked =
    "Request received while running; marking pending and waiting for completion.";
constexpr const char* kLooping =
    "A request arrived during operation; looping once more to service pending.";

class RunGateTest : public ::testing::Test {
 protected:
  // Requests the gate now with an operation that takes `length` of virtual time.
  void request(const std::string& name, platform::Duration length,
               core::TimeInterval maxDuration = core::TimeInterval(3600)) {
    RunGate::Operation operation = [this, name, length]() -> asio::awaitable<void> {
      events_.push_back(name + " runs");
      co_await clock_.sleep(length);
      events_.push_back(name + " done");
    };
    asio::co_spawn(
        context_,
        [this, name, operation, maxDuration]() -> asio::awaitable<void> {
          co_await gate_.request(operation, maxDuration);
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

TEST_F(RunGateTest, ALoneRequestRunsOnceAndUnlocks) {
  request("A", seconds(10));
  clock_.advance(hours(2));
  EXPECT_EQ(events_, (Events{"A runs", "A done", "A returned"}));
  EXPECT_EQ(count(kLocked), 1);
  EXPECT_EQ(count(kUnlocked), 1);
  EXPECT_EQ(count(kMarked), 0);
  // The watchdog of a holder that finished in time says nothing.
  EXPECT_TRUE(capture_.errors().empty());
}

// The extra pass is of the first caller's operation; the waiters return with it.
TEST_F(RunGateTest, RequestsDuringAPassCostOneMorePassAndReturnTogetherEarlierFirst) {
  request("A", seconds(10));
  clock_.advance(seconds(2));
  request("B", seconds(1));
  clock_.advance(seconds(2));
  request("C", seconds(1));
  clock_.advance(seconds(16));  // Both passes are over at 20 s.
  EXPECT_EQ(events_, (Events{"A runs", "A done", "A runs", "A done", "A returned", "B returned",
                             "C returned"}));
  EXPECT_EQ(count(kMarked), 2);
  EXPECT_EQ(count(kLooping), 1);
  EXPECT_EQ(count(kLocked), 1);
}

TEST_F(RunGateTest, ARequestDuringTheExtraPassCausesOneMore) {
  request("A", seconds(10));
  clock_.advance(seconds(5));
  request("B", seconds(1));
  clock_.advance(seconds(10));  // Inside the second pass.
  request("C", seconds(1));
  clock_.advance(minutes(1));
  EXPECT_EQ(std::count(events_.begin(), events_.end(), "A runs"), 3);
  EXPECT_EQ(events_.back(), "C returned");
  EXPECT_EQ(count(kLooping), 2);
}

TEST_F(RunGateTest, TheWatchdogFreesTheGateAndAStuckOperationGoesOnBesideANewOne) {
  request("A", hours(2));
  clock_.advance(minutes(10));
  request("B", seconds(1));     // Waits for A.
  clock_.advance(minutes(50));  // 1 h: the watchdog fires.
  EXPECT_EQ(events_, (Events{"A runs", "B returned"}));
  EXPECT_EQ(capture_.errors(),
            std::vector<std::string>{
                "RunGate watchdog fired after 3600s; forcing unlock to avoid indefinite block."});

  request("C", hours(2), core::TimeInterval(5 * 3600));  // Locks at once beside A.
  EXPECT_EQ(events_.back(), "C runs");
  EXPECT_EQ(count(kLocked), 2);

  clock_.advance(hours(1));  // 2 h: A finally ends; its late return leaves C's hold alone.
  EXPECT_EQ(events_, (Events{"A runs", "B returned", "C runs", "A done", "A returned"}));
  request("D", seconds(1));
  EXPECT_EQ(count(kMarked), 2);  // B's, then D's: the gate is still held by C.
  clock_.advance(hours(3));
  EXPECT_EQ(events_, (Events{"A runs", "B returned", "C runs", "A done", "A returned", "C done",
                             "C runs", "C done", "C returned", "D returned"}));
  EXPECT_EQ(capture_.errors().size(), 1u);
}

TEST_F(RunGateTest, TheWatchdogCoversAllPassesTogether) {
  request("A", minutes(40));
  clock_.advance(minutes(10));
  request("B", seconds(1));     // A second pass of 40 min: the holder stays 80 min.
  clock_.advance(minutes(55));  // 65 min: the watchdog has fired during the second pass.
  EXPECT_EQ(events_, (Events{"A runs", "A done", "A runs", "B returned"}));
  EXPECT_EQ(capture_.errors().size(), 1u);
  clock_.advance(minutes(30));
  EXPECT_EQ(events_.back(), "A returned");
  EXPECT_EQ(count(kUnlocked), 1);  // Only the forced unlock; the late end unlocks nothing.
}

}  // namespace
}  // namespace velmo::agent::run
