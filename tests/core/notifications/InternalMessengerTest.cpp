#include "core/notifications/InternalMessenger.h"

#include <gtest/gtest.h>

#include <asio/io_context.hpp>

#include "platform/fake/FakeDistributedNotificationCenter.h"

namespace velmo::core {
namespace {

constexpr std::string_view kName = "com.marvenith.velmo.didPerformInstall";

struct Sample {
  std::string id;
  int count = 0;
  bool operator==(const Sample&) const = default;
};
void to_json(nlohmann::json& json, const Sample& sample) {
  json = {{"id", sample.id}, {"count", sample.count}};
}

// Built on its first use, once: a centre named later changes nothing.
TEST(InternalMessengerShared, IsBuiltOnceOnFirstUse) {
  asio::io_context context;
  platform::fake::FakeDistributedNotificationCenter first(context.get_executor());
  platform::fake::FakeDistributedNotificationCenter second(context.get_executor());
  InternalMessenger::setDefaultCenter(&first);
  InternalMessenger* shared = InternalMessenger::shared();
  ASSERT_NE(shared, nullptr);
  InternalMessenger::setDefaultCenter(&second);
  EXPECT_EQ(InternalMessenger::shared(), shared);
  shared->post(kName, Sample{"a", 1});
  EXPECT_EQ(first.postsNamed(kName).size(), 1u);
  EXPECT_TRUE(second.posts().empty());
}

}  // namespace
}  // namespace velmo::core
