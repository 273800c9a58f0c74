#include "agent/policy/MDMChangeObserver.h"

#include <gtest/gtest.h>

#include <asio/io_context.hpp>

#include "backends/fake/FakeDistributedNotificationCenter.h"
#include "backends/fake/FakeUserDefaults.h"
#include "backends/fake/VirtualClock.h"
#include "core/SubscriberOperators.h"
#include "tests/support/LogCapture.h"

namespace velmo::agent::policy {
namespace {

using core::PlistArray;
using core::PlistDictionary;
using std::chrono::seconds;

constexpr const char* kDomain = "com.marvenith.velmo-agent";

class MDMChangeObserverTest : public ::testing::Test {
 protected:
  void SetUp() override {
    subscription_ = observer_->config().subscribe(core::dropFirst<VelmoRunConfig>(
        [this](const VelmoRunConfig& c) { published_.push_back(c); }));
  }

  void notify(PlistArray domains) {
    distributed_.deliver(0, "com.apple.MCX._managementStatusChangedForDomains", std::nullopt,
                         PlistDictionary{{"com.apple.MCX.changedDomains", std::move(domains)}});
    clock_.runUntilIdle();
  }

  asio::io_context context_;
  platform::fake::VirtualClock clock_{context_};
  testing::LogCapture capture_{&clock_};
  platform::fake::FakeDistributedNotificationCenter distributed_{context_.get_executor(), 0};
  platform::fake::FakeUserDefaults defaults_;
  std::unique_ptr<MDMChangeObserver> observer_ = std::make_unique<MDMChangeObserver>(
      MDMChangeObserver::Collaborators{context_.get_executor(), clock_, distributed_, defaults_},
      kDomain);
  core::Subscription subscription_;
  std::vector<VelmoRunConfig> published_;
};

// Profiles are often removed and put back during a redeploy: an empty policy
// may not replace one that has a run scope, and may replace any other.
struct RedeployCase {
  const char* name;
  const char* key;
  core::PlistValue value;
  bool suppressed;
};
void PrintTo(const RedeployCase& c, std::ostream* os) { *os << c.name; }

class RemovedProfile : public MDMChangeObserverTest,
                       public ::testing::WithParamInterface<RedeployCase> {};

TEST_P(RemovedProfile, IsSuppressedOnlyWithARunScope) {
  const auto& param = GetParam();
  defaults_.set(param.key, param.value);
  notify(PlistArray{kDomain});
  clock_.advance(seconds(5));
  ASSERT_EQ(published_.size(), 1u);
  ASSERT_FALSE(published_[0].isEmpty());

  defaults_.remove(param.key);
  notify(PlistArray{kDomain});
  clock_.advance(seconds(5));
  if (!param.suppressed) {
    ASSERT_EQ(published_.size(), 2u);
    EXPECT_TRUE(published_[1].isEmpty());
    return;
  }
  EXPECT_EQ(published_.size(), 1u);
  const auto debugs = capture_.debugs();
  EXPECT_NE(std::find(debugs.begin(), debugs.end(),
                      "Suppressed empty MDM Velmo Run Config during redeploy."),
            debugs.end());
  EXPECT_EQ(observer_->config().value(), published_[0]);

  defaults_.set(param.key, param.value);  // Back the same: nothing new.
  notify(PlistArray{kDomain});
  clock_.advance(seconds(5));
  EXPECT_EQ(published_.size(), 1u);
}

// A table, not Values(...): GCC 12 warns of the tuple that Values builds.
const RedeployCase kRedeployCases[] = {
    {"Interval", "RunInterval", 3600, true},
    {"InstallOrUpdate", "InstallOrUpdate", PlistArray{"a"}, true},
    {"OnlyNoUserRunsOutside", "AllowUserInitiatedOutsideWindows", false, false}};
INSTANTIATE_TEST_SUITE_P(Scopes, RemovedProfile, ::testing::ValuesIn(kRedeployCases),
                         [](const auto& info) { return std::string(info.param.name); });

}  // namespace
}  // namespace velmo::agent::policy
