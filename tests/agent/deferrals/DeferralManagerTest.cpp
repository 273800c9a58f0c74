#include "agent/deferrals/DeferralManager.h"

#include <gtest/gtest.h>

#include <algorithm>

#include "agent/run/AgentNotificationNames.h"
#include "core/deferrals/DialogResponse.h"
#include "core/notifications/NotificationNames.h"
#include "tests/support/AgentFakes.h"

namespace velmo::agent::deferrals {
namespace {

namespace Name = core::NotificationName;
using Kind = core::ResponseType::Kind;

core::UpdateItem item(const std::string& id, const std::string& version = "2.0") {
  return core::UpdateItem(id, id, version, "1.0", "/Applications/" + id + ".app", false, false);
}

class DeferralManagerTest : public ::testing::Test, protected testing::AgentFakes {
 protected:
  void respond(const core::UpdateItem& forItem, core::ResponseType response) {
    const auto text = core::DialogResponse::fromItem(forItem, response).jsonText();
    distributed_.deliver(0, Name::dialogResponse, text);
    clock_.advance(std::chrono::minutes(1));
  }
  core::DeferralMap records() const {
    const auto text = files_.readFile(paths_.deferralsFile());
    return text.ok() ? core::decodeDeferralMap(text.value()).value_or(core::DeferralMap{})
                     : core::DeferralMap{};
  }
  std::size_t changedPosts() const {
    return distributed_.postsNamed(Name::deferralsDidChange).size();
  }

  DeferralManager manager_{{context_.get_executor(), context_.get_executor(), clock_, files_,
                            paths_, distributed_, notifications_, postLog_}};
};

TEST_F(DeferralManagerTest, DeferralsCountPerAppAndVersionAndAnInstallClearsThemAll) {
  const auto start = clock_.now();
  respond(item("com.example.app"), {Kind::deferral, ""});
  ASSERT_EQ(records().size(), 1u);
  EXPECT_EQ(records().at("com.example.app_2.0").deferralCount, 1);
  respond(item("com.example.app"), {Kind::dndDeferral, ""});
  respond(item("com.example.app"), {Kind::meetingDeferral, "video call"});
  const auto record = records().at("com.example.app_2.0");
  EXPECT_EQ(record.deferralCount, 3);
  ASSERT_TRUE(record.deferrals);
  EXPECT_EQ(*record.deferrals,
            (std::vector<core::DeferralDetail>{
                {start, "User chose to defer"},
                {start + std::chrono::minutes(1), "Respect DND deferral"},
                {start + std::chrono::minutes(2), "Respect meetings deferral (video call)"}}));
  respond(item("com.example.app", "3.0"), {Kind::timeoutAsDeferral, ""});
  respond(item("other"), {Kind::deferral, ""});
  EXPECT_EQ(records().size(), 3u);
  EXPECT_EQ(records().at("com.example.app_3.0").deferralCount, 1);
  EXPECT_EQ(changedPosts(), 5u);

  distributed_.deliver(0, Name::didPerformInstall, item("com.example.app").jsonText());
  clock_.runUntilIdle();
  EXPECT_EQ(records().size(), 1u);
  EXPECT_EQ(records().count("other_2.0"), 1u);
  EXPECT_EQ(changedPosts(), 6u);
}

TEST_F(DeferralManagerTest, RemovalGoesByTheRecordsOwnAppIDUnderscoresAndAll) {
  respond(item("com.example_tool"), {Kind::deferral, ""});
  respond(item("com.example"), {Kind::deferral, ""});
  respond(item("com.example", "3.0"), {Kind::deferral, ""});
  notifications_.post(run::AgentNotificationName::removeDeferralsForItem,
                      std::any(item("com.example_tool")));
  clock_.runUntilIdle();
  auto left = records();
  ASSERT_EQ(left.size(), 2u);
  for (const auto& [key, record] : left) EXPECT_EQ(record.appId, "com.example") << key;
  // "com.example" is a prefix of the other key, and still only its own records go.
  respond(item("com.example_tool"), {Kind::deferral, ""});
  notifications_.post(run::AgentNotificationName::removeDeferralsForItem,
                      std::any(item("com.example")));
  clock_.runUntilIdle();
  left = records();
  ASSERT_EQ(left.size(), 1u);
  EXPECT_EQ(left.begin()->second.appId, "com.example_tool");
}

// A burst is folded into few writes, each with one post; the file keeps the
// most recently deferred records and each record's newest details.
TEST_F(DeferralManagerTest, ABurstIsFoldedAndTheFileKeepsItsBounds) {
  const auto deliver = [&](const std::string& id, Kind kind) {
    const auto text = core::DialogResponse::fromItem(item(id), {kind, ""}).jsonText();
    distributed_.deliver(0, Name::dialogResponse, text);
  };
  // One record too many: the one deferred longest ago goes, though all of
  // one second look alike in the file.
  const std::size_t most = DeferralStorageManager::kMaxRecords;
  const std::size_t many = DeferralStorageManager::kMaxDetails + 5;
  for (std::size_t i = 0; i < most; ++i) {
    if (i == most / 2) {
      clock_.advance(std::chrono::seconds(1));
      for (std::size_t j = 0; j < many; ++j) deliver("busy", Kind::deferral);
    }
    deliver("app" + std::to_string(i), Kind::deferral);
  }
  deliver("busy", Kind::dndDeferral);
  clock_.runUntilIdle();
  const auto map = records();
  EXPECT_EQ(map.size(), DeferralStorageManager::kMaxRecords);
  EXPECT_EQ(map.count("app0_2.0"), 0u) << "the record deferred longest ago goes";
  const auto& busy = map.at("busy_2.0");
  EXPECT_EQ(busy.deferralCount, static_cast<std::int64_t>(many + 1));
  ASSERT_EQ(busy.deferrals->size(), DeferralStorageManager::kMaxDetails);
  EXPECT_EQ(busy.deferrals->back().reason, "Respect DND deferral");
  EXPECT_LE(changedPosts(), 4u);
}

// Whole seconds make a burst's records look alike in the file: the order in
// which this process changed them decides, not their keys.
TEST(DeferralStorageManager, WithinOneSecondTheLeastRecentlyChangedGoes) {
  core::DeferralMap records;
  DeferralStorageManager::Recency recency;
  const core::DeferralDetail detail{platform::fake::VirtualClock::kDefaultStart, "r"};
  for (std::size_t i = 0; i < DeferralStorageManager::kMaxRecords; ++i) {
    // "a0" is changed last, though it sorts first.
    const std::string id = "a" + std::to_string((i + 1) % DeferralStorageManager::kMaxRecords);
    auto record = core::Deferral::make(id, "1");
    record.deferrals = std::vector{detail};
    recency[id + "_1"] = i + 1;
    records.emplace(id + "_1", record);
  }
  auto fresh = core::Deferral::make("b", "1");
  fresh.deferrals = std::vector{detail};
  recency["b_1"] = DeferralStorageManager::kMaxRecords + 1;
  DeferralStorageManager::store(records, fresh, "b_1", recency);
  EXPECT_EQ(records.size(), DeferralStorageManager::kMaxRecords);
  EXPECT_EQ(records.count("a0_1"), 1u);
  EXPECT_EQ(records.count("a1_1"), 0u);
}

// Another account's records survive an account at its bound: it gives up its
// own oldest, and a record it shares only stops listing it.
TEST(DeferralStorageManager, AnAccountAtItsBoundReplacesOnlyItsOwn) {
  constexpr std::uint32_t kUser = 501, kNobody = 65534;
  core::DeferralMap records;
  DeferralStorageManager::Recency recency;
  std::uint64_t changes = 0;
  const auto defer = [&](const std::string& id, std::uint32_t account) {
    auto record = records.count(id + "_1") ? records.at(id + "_1") : core::Deferral::make(id, "1");
    record.deferralCount = record.deferralCount.value_or(0) + 1;
    record.deferrals =
        std::vector{core::DeferralDetail{platform::fake::VirtualClock::kDefaultStart, "r"}};
    recency[id + "_1"] = ++changes;
    DeferralStorageManager::store(records, record, id + "_1", recency, {account});
  };
  defer("teams", kUser);
  defer("shared", kNobody);
  defer("shared", kUser);
  for (int i = 0; i < 1000; ++i) defer("junk" + std::to_string(i), kNobody);
  const auto listed = [&](std::uint32_t account) {
    return std::count_if(records.begin(), records.end(), [&](const auto& entry) {
      return entry.second.deferredByAccount(account);
    });
  };
  EXPECT_EQ(listed(kNobody), static_cast<long>(DeferralStorageManager::kMaxRecordsPerAccount));
  ASSERT_EQ(records.count("teams_1"), 1u);
  EXPECT_EQ(records.at("teams_1").deferralCount, 1);
  ASSERT_EQ(records.count("shared_1"), 1u) << "kept for the account that still defers it";
  EXPECT_EQ(records.at("shared_1").deferredBy, std::vector<std::uint32_t>{kUser});
  EXPECT_EQ(records.count("junk899_1"), 0u);
  EXPECT_EQ(records.count("junk999_1"), 1u);
}

}  // namespace
}  // namespace velmo::agent::deferrals
