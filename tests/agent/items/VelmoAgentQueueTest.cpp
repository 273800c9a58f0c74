#include "agent/items/VelmoAgentQueue.h"

#include <gtest/gtest.h>

#include "tests/support/AgentFakes.h"

namespace velmo::agent::items {
namespace {

using std::chrono::seconds;

core::UpdateItem item(const std::string& id, std::optional<bool> serial) {
  return core::UpdateItem(id, id, "2.0", std::nullopt, "/Applications/" + id + ".app", false, false,
                          serial);
}

class VelmoAgentQueueTest : public ::testing::Test, protected testing::AgentFakes {
 protected:
  std::vector<platform::Duration> launchTimes() const {
    std::vector<platform::Duration> times;
    for (const auto& launch : launcher_.launches()) times.push_back(launch.at - start_);
    return times;
  }

  platform::TimePoint start_ = clock_.now();
  VelmoAgentQueue queue_{{context_.get_executor(), clock_, defaults_, runner_}};
};

TEST_F(VelmoAgentQueueTest, SerialItemsWaitForEachOther) {
  launcher_.enqueue({.exitAfter = seconds(10)});
  launcher_.enqueue({.exitAfter = seconds(10)});
  queue_.enqueue(item("a", true));
  queue_.enqueue(item("b", true));
  clock_.advance(seconds(30));
  EXPECT_EQ(launchTimes(), (std::vector<platform::Duration>{seconds(0), seconds(10)}));
  EXPECT_TRUE(queue_.serialQueueItems().empty());
  EXPECT_TRUE(queue_.concurrentQueueItems().empty());
}

// Four run at once, the rest wait in order; a request for an id in work,
// waiting or running, joins it; once done, the id can run again.
TEST_F(VelmoAgentQueueTest, AtMostFourRunAtOnceAndAnIDInWorkRunsOnce) {
  for (int i = 0; i < 7; ++i) launcher_.enqueue({.exitAfter = seconds(10)});
  for (const char* id : {"a", "b", "c", "d", "e", "f", "a", "e"}) queue_.enqueue(item(id, false));
  clock_.runUntilIdle();
  EXPECT_EQ(queue_.concurrentQueueItems().size(), 6u);
  EXPECT_EQ(launchTimes(), std::vector<platform::Duration>(4, seconds(0)));
  queue_.enqueue(item("f", false));
  clock_.advance(seconds(10));
  queue_.enqueue(item("a", false));
  clock_.advance(seconds(30));
  std::vector<std::string> ids;
  for (const auto& launch : launcher_.launches()) ids.push_back(launch.arguments[1]);
  EXPECT_EQ(ids, (std::vector<std::string>{"a", "b", "c", "d", "e", "f", "a"}));
  EXPECT_EQ(launchTimes()[4], seconds(10));
  EXPECT_TRUE(queue_.concurrentQueueItems().empty());
}

TEST_F(VelmoAgentQueueTest, TheSerialSideHoldsAtMost256Waiting) {
  launcher_.enqueue({.exitAfter = seconds(10)});
  for (std::size_t i = 0; i <= VelmoAgentQueue::kMaxSerialWaiting + 1; ++i) {
    queue_.enqueue(item("s" + std::to_string(i), true));
  }
  clock_.runUntilIdle();
  EXPECT_EQ(queue_.serialQueueItems().size(), VelmoAgentQueue::kMaxSerialWaiting + 1);
  EXPECT_EQ(capture_.errors(),
            std::vector<std::string>{
                "Dropped update item s257: 256 items already wait for the serial queue."});
}

TEST_F(VelmoAgentQueueTest, UpdateMASAddsAFifthWordAndAFailureIsLoggedThenFinished) {
  defaults_.set("UpdateMAS", true);
  launcher_.enqueue({.exitAfter = seconds(2), .exitStatus = 1});
  queue_.enqueue(item("a", true));
  clock_.advance(seconds(3));
  ASSERT_EQ(launcher_.launches().size(), 1u);
  EXPECT_EQ(launcher_.launches()[0].arguments,
            (std::vector<std::string>{"install", "a", "--menu-bar-notification", "--user-initiated",
                                      "--update-mas"}));
  EXPECT_EQ(capture_.errors(),
            std::vector<std::string>{"Failed to process queued update item: a with exit code: 1"});
  EXPECT_TRUE(queue_.serialQueueItems().empty());
}

}  // namespace
}  // namespace velmo::agent::items
