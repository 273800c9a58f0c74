#include "agent/policy/MDMChangeObserver.h"

#include <gtest/gtest.h>

#include <asio/io_context.hpp>

#include "core/SubscriberOperators.h"
#include "platform/fake/FakeDistributedNotificationCenter.h"
#include "platform/fake/FakeUserDefaults.h"
#include "platform/fake/VirtualClock.h"
#include "tests/support/LogCapture.h"

namespace velmo::agent::policy {
namespace {

using core::PlistArray;
using core::PlistDictionary;
using std::chrono::milliseconds;
using std::chrono::seconds;

constexpr const char* kDomain = "com.marvenith.velmo-agent";

// Counts how often the policy is read: each read asks for "RunInterval" once.
class CountingUserDefaults final : public platform::UserDefaults {
 public:
  std::optional<core::PlistValue> object(std::string_view key) const override {
    if (key == "RunInterval") ++reads;
    return store.object(key);
  }
  void setObject(std::string_view key, const core::PlistValue& value) override {
    store.setObject(key, value);
  }
  platform::fake::FakeUserDefaults store;
  mutable int reads = 0;
};

class MDMChangeObserverTest : public ::testing::Test {
 protected:
  void SetUp() override {
    subscription_ = observer_->config().subscribe(core::dropFirst<VelmoRunConfig>(
        [this](const VelmoRunConfig& c) { published_.push_back(c); }));
  }

  void notify(PlistArray domains) {
    distributed_.deliver({"com.apple.MCX._managementStatusChangedForDomains", std::nullopt,
                          PlistDictionary{{"com.apple.MCX.changedDomains", std::move(domains)}}});
    clock_.runUntilIdle();
  }

  asio::io_context context_;
  platform::fake::VirtualClock clock_{context_};
  testing::LogCapture capture_{&clock_};
  platform::fake::FakeDistributedNotificationCenter distributed_{context_.get_executor()};
  CountingUserDefaults defaults_;
  std::unique_ptr<MDMChangeObserver> observer_ = std::make_unique<MDMChangeObserver>(
      MDMChangeObserver::Collaborators{context_.get_executor(), clock_, distributed_, defaults_},
      kDomain);
  core::Subscription subscription_;
  std::vector<VelmoRunConfig> published_;
};

TEST_F(MDMChangeObserverTest,
       TenNotificationsWithinFourSecondsCauseOneReadFiveSecondsAfterTheLast) {
  const int readsAtStart = defaults_.reads;
  defaults_.setObject("UpdateAll", true);
  for (int i = 0; i < 10; ++i) {
    notify(PlistArray{"com.apple.controlcenter", kDomain});
    if (i < 9) clock_.advance(milliseconds(400));
  }
  clock_.advance(milliseconds(4999));
  EXPECT_EQ(defaults_.reads, readsAtStart);
  clock_.advance(milliseconds(1));
  EXPECT_EQ(defaults_.reads, readsAtStart + 1);
  ASSERT_EQ(published_.size(), 1u);
  EXPECT_TRUE(published_[0].updateAll);
}

TEST_F(MDMChangeObserverTest, NotificationsForOtherDomainsOrWithoutAListAreIgnored) {
  const int readsAtStart = defaults_.reads;
  notify(PlistArray{"com.apple.controlcenter"});
  notify(PlistArray{kDomain, 5});  // Not an array of strings.
  distributed_.deliver({"com.apple.MCX._managementStatusChangedForDomains", kDomain, std::nullopt});
  distributed_.deliver({"com.apple.MCX._managementStatusChangedForDomains", std::nullopt,
                        PlistDictionary{{"com.apple.MCX.changedDomains", kDomain}}});
  clock_.advance(seconds(30));
  EXPECT_EQ(defaults_.reads, readsAtStart);
}

TEST_F(MDMChangeObserverTest, ARemovedProfileWithARunScopeIsSuppressed) {
  defaults_.setObject("UpdateAll", true);
  notify(PlistArray{kDomain});
  clock_.advance(seconds(5));
  ASSERT_EQ(published_.size(), 1u);

  defaults_.store.remove("UpdateAll");  // The profile is removed...
  notify(PlistArray{kDomain});
  clock_.advance(seconds(5));
  EXPECT_EQ(published_.size(), 1u);
  const auto debugs = capture_.debugs();
  EXPECT_NE(std::find(debugs.begin(), debugs.end(),
                      "Suppressed empty MDM Velmo Run Config during redeploy."),
            debugs.end());
  EXPECT_TRUE(observer_->config().value().updateAll);

  defaults_.setObject("UpdateAll", true);  // ...and comes back the same: nothing new.
  notify(PlistArray{kDomain});
  clock_.advance(seconds(5));
  EXPECT_EQ(published_.size(), 1u);
}

TEST_F(MDMChangeObserverTest, ARemovedProfileWithOnlyBlackoutWindowsIsReplaced) {
  defaults_.setObject(
      "GlobalBlackoutWindows",
      PlistArray{PlistDictionary{{"days", PlistArray{"sun"}},
                                 {"start", PlistDictionary{{"hour", 1}, {"minute", 0}}},
                                 {"end", PlistDictionary{{"hour", 2}, {"minute", 0}}}}});
  notify(PlistArray{kDomain});
  clock_.advance(seconds(5));
  ASSERT_EQ(published_.size(), 1u);
  EXPECT_EQ(published_[0].globalBlackoutWindows.size(), 1u);

  defaults_.store.remove("GlobalBlackoutWindows");
  notify(PlistArray{kDomain});
  clock_.advance(seconds(5));
  ASSERT_EQ(published_.size(), 2u);
  EXPECT_TRUE(published_[1].isEmpty());
}

TEST_F(MDMChangeObserverTest, TeardownStopsObserving) {
  EXPECT_EQ(distributed_.observerCount("com.apple.MCX._managementStatusChangedForDomains"), 1u);
  subscription_.cancel();
  observer_.reset();
  EXPECT_EQ(distributed_.observerCount("com.apple.MCX._managementStatusChangedForDomains"), 0u);
}

}  // namespace
}  // namespace velmo::agent::policy
