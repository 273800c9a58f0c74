#include "core/Published.h"

#include <gtest/gtest.h>

#include <asio/io_context.hpp>

#include "core/SubscriberOperators.h"
#include "platform/fake/VirtualClock.h"

namespace velmo::core {
namespace {

using std::chrono::seconds;

TEST(Published, ASubscriberHearsTheCurrentValueThenEachNewOneUntilCancelled) {
  Published<int> published(1);
  std::vector<int> heard;
  Subscription subscription = published.subscribe([&](const int& v) { heard.push_back(v); });
  published.set(2);
  published.set(2);
  subscription.cancel();
  published.set(3);
  EXPECT_EQ(heard, (std::vector<int>{1, 2, 2}));
  EXPECT_EQ(published.value(), 3);
}

TEST(Published, TheOperatorsDropRepeatsAndTheFirstValueAndDebounce) {
  asio::io_context context;
  platform::fake::VirtualClock clock(context);
  Published<int> published(0);
  std::vector<std::pair<int, TimePoint>> heard;
  const auto start = clock.now();
  Subscription subscription = published.subscribe(removeDuplicates<int>(
      dropFirst<int>(debounce<int>(context.get_executor(), clock, seconds(5),
                                   [&](const int& v) { heard.emplace_back(v, clock.now()); }))));
  clock.advance(seconds(10));
  EXPECT_TRUE(heard.empty());  // The value at subscription is dropped.

  published.set(0);  // A repeat of the first value: dropped before the debounce.
  published.set(1);
  clock.advance(seconds(2));
  published.set(1);  // A repeat: doesn't restart the wait.
  clock.advance(seconds(2));
  published.set(2);
  clock.advance(seconds(4));
  EXPECT_TRUE(heard.empty());
  clock.advance(seconds(1));
  ASSERT_EQ(heard.size(), 1u);
  EXPECT_EQ(heard[0], std::pair(2, start + seconds(19)));

  published.set(3);
  subscription.cancel();  // A pending value goes with the subscription.
  clock.advance(seconds(10));
  EXPECT_EQ(heard.size(), 1u);
}

}  // namespace
}  // namespace velmo::core
