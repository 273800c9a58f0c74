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

// The second "a" joins the first; runs that exit 0 log no failure.
TEST_F(VelmoAgentQueueTest, SerialItemsWaitForEachOther) {
  launcher_.enqueue({.exitAfter = seconds(10)});
  launcher_.enqueue({.exitAfter = seconds(10)});
  for (const char* id : {"a", "b", "a"}) queue_.enqueue(item(id, true));
  clock_.advance(seconds(30));
  EXPECT_EQ(launchTimes(), (std::vector<platform::Duration>{seconds(0), seconds(10)}));
  EXPECT_TRUE(queue_.serialQueueItems().empty());
  EXPECT_TRUE(queue_.concurrentQueueItems().empty());
  EXPECT_TRUE(capture_.errors().empty());
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
  EXPECT_EQ(launcher_.launches().size(), 6u);  // Ends start the waiting ones.
  queue_.enqueue(item("a", false));
  clock_.advance(seconds(30));
  std::vector<std::string> ids;
  for (const auto& launch : launcher_.launches()) ids.push_back(launch.arguments[1]);
  EXPECT_EQ(ids, (std::vector<std::string>{"a", "b", "c", "d", "e", "f", "a"}));
  EXPECT_EQ(launchTimes()[4], seconds(10));
  EXPECT_TRUE(queue_.concurrentQueueItems().empty());
}

// A run of its own: its command line, its status to `done`, its id merged
// with any request for the same id while it is in work.
TEST_F(VelmoAgentQueueTest, ARunOfItsOwnJoinsTheConcurrentSide) {
  launcher_.enqueue({.exitAfter = seconds(10), .exitStatus = 3});
  std::vector<int> statuses;
  EXPECT_TRUE(queue_.enqueueRun("a", {"update", "a"}, core::TimeInterval(60),
                                [&](int status) { statuses.push_back(status); }));
  EXPECT_EQ(queue_.concurrentQueueItems().size(), 1u);
  EXPECT_FALSE(queue_.enqueueRun("a", {"update", "a"}, core::TimeInterval(60), {}));
  queue_.enqueue(item("a", false));
  clock_.advance(seconds(10));
  EXPECT_EQ(launchedArguments(), (Calls{{"update", "a"}}));
  EXPECT_EQ(statuses, std::vector<int>{3});
  EXPECT_TRUE(queue_.concurrentQueueItems().empty());
}

enum class Request { serialItem, concurrentItem, run };

struct BoundCase {
  const char* name;
  Request request;
  std::size_t running;
  std::size_t waiting;  // The most.
  const char* dropped;
};

void PrintTo(const BoundCase& c, std::ostream* os) { *os << c.name; }

class VelmoAgentQueueBound : public VelmoAgentQueueTest,
                             public ::testing::WithParamInterface<BoundCase> {};

TEST_P(VelmoAgentQueueBound, DropsTheRequestBeyondTheMostWaiting) {
  const auto& side = GetParam();
  for (std::size_t i = 0; i < side.running; ++i) launcher_.enqueue({.exitAfter = seconds(10)});
  for (std::size_t i = 0; i <= side.running + side.waiting; ++i) {
    const std::string id = "s" + std::to_string(i);
    if (side.request == Request::run) {
      queue_.enqueueRun(id, {"update", id}, core::TimeInterval(60), {});
    } else {
      queue_.enqueue(item(id, side.request == Request::serialItem));
    }
  }
  clock_.runUntilIdle();
  const auto& items = side.request == Request::serialItem ? queue_.serialQueueItems()
                                                          : queue_.concurrentQueueItems();
  EXPECT_EQ(items.size(), side.running + side.waiting);
  EXPECT_EQ(capture_.errors(), std::vector<std::string>{side.dropped});
}

INSTANTIATE_TEST_SUITE_P(
    Table, VelmoAgentQueueBound,
    ::testing::Values(
        BoundCase{"SerialItems", Request::serialItem, 1, VelmoAgentQueue::kMaxSerialWaiting,
                  "Dropped update item s257: 256 items already wait for the serial queue."},
        BoundCase{"ConcurrentItems", Request::concurrentItem, VelmoAgentQueue::kMaxConcurrentRuns,
                  VelmoAgentQueue::kMaxConcurrentWaiting,
                  "Dropped update item s1004: 1000 items already wait for the concurrent queue."},
        BoundCase{"Runs", Request::run, VelmoAgentQueue::kMaxConcurrentRuns,
                  VelmoAgentQueue::kMaxConcurrentWaiting,
                  "Dropped update item s1004: 1000 items already wait for the concurrent queue."}),
    [](const auto& info) { return std::string(info.param.name); });

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
