#include "core/notifications/InternalMessenger.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <asio/io_context.hpp>

#include "platform/fake/FakeDistributedNotificationCenter.h"
#include "tests/support/LogCapture.h"

namespace velmo::core {
namespace {

constexpr std::string_view kName = "com.marvenith.velmo.didPerformInstall";
const std::vector<std::string> kDecodeFailure{
    "Failed to convert notification object to string or decode it."};

struct Sample {
  std::string id;
  int count = 0;
  bool operator==(const Sample&) const = default;
};
void to_json(nlohmann::json& json, const Sample& sample) {
  json = {{"id", sample.id}, {"count", sample.count}};
}
void from_json(const nlohmann::json& json, Sample& sample) {
  json.at("id").get_to(sample.id);
  json.at("count").get_to(sample.count);
}

class InternalMessengerTest : public ::testing::Test {
 protected:
  void deliver(std::optional<std::string> object) {
    center_.deliver({std::string(kName), std::move(object), std::nullopt});
    run();
  }
  void run() {
    context_.restart();
    context_.run();
  }

  testing::LogCapture capture_;
  asio::io_context context_;
  platform::fake::FakeDistributedNotificationCenter center_{context_.get_executor()};
  InternalMessenger messenger_{center_};
};

TEST_F(InternalMessengerTest, AValueThatCannotBeEncodedIsLoggedAndNotPosted) {
  messenger_.post(kName, Sample{"bad \xff byte", 1});
  EXPECT_TRUE(center_.posts().empty());
  EXPECT_THAT(capture_.errors(), ::testing::ElementsAre(::testing::AllOf(
                                     ::testing::StartsWith("Failed to encode object: "),
                                     ::testing::HasSubstr("UTF-8"))));
}

struct BadObjectCase {
  std::string label;
  std::optional<std::string> object;
};
void PrintTo(const BadObjectCase& bad, std::ostream* out) { *out << bad.label; }

class InternalMessengerBadObjectTest : public InternalMessengerTest,
                                       public ::testing::WithParamInterface<BadObjectCase> {};

TEST_P(InternalMessengerBadObjectTest, LogsTheOneErrorSkipsTheHandlerAndKeepsObserving) {
  std::vector<Sample> received;
  messenger_.observe<Sample>(kName, [&](const Sample& sample) { received.push_back(sample); });
  deliver(GetParam().object);
  EXPECT_TRUE(received.empty());
  EXPECT_EQ(capture_.errors(), kDecodeFailure);

  deliver(R"({"id":"a","count":1})");
  EXPECT_EQ(received, (std::vector<Sample>{{"a", 1}}));
  EXPECT_EQ(capture_.errors(), kDecodeFailure);
}

INSTANTIATE_TEST_SUITE_P(
    Objects, InternalMessengerBadObjectTest,
    ::testing::Values(BadObjectCase{"None", std::nullopt}, BadObjectCase{"Empty", ""},
                      BadObjectCase{"NotJson", "hello"},
                      BadObjectCase{"TrailingText", R"({"id":"a","count":1}x)"},
                      BadObjectCase{"IllFormedUtf8", "{\"id\":\"\xc3\x28\"}"},
                      BadObjectCase{"AnotherShape", R"([{"id":"a"}])"},
                      BadObjectCase{"MissingKey", R"({"id":"a"})"},
                      BadObjectCase{"WrongType", R"({"id":5,"count":1})"}),
    [](const auto& info) { return info.param.label; });

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
