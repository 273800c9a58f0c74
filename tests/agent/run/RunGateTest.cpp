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

using std::chrono::minutes;
using std::chrono::seconds;
using Events = std::vector<std::string>;

constexpr const char* kUnlocked = "RunGate unlocked (operation complete).";

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
