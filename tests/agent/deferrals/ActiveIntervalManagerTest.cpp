#include "agent/deferrals/ActiveIntervalManager.h"

#include <gtest/gtest.h>

#include "backends/fake/FakeApplicationTerminations.h"
#include "core/notifications/NotificationNames.h"
#include "tests/support/AgentFakes.h"

namespace velmo::agent::deferrals {
namespace {

namespace Name = core::NotificationName;
using Kind = core::ResponseType::Kind;
using std::chrono::milliseconds;
using std::chrono::seconds;

core::UpdateItem item(const std::string& id, const std::string& path) {
  return core::UpdateItem(id, id, "2.0", "1.0", path, false, false);
}

class ActiveIntervalManagerTest : public ::testing::Test, protected testing::AgentFakes {
 protected:
  void SetUp() override {
    controller_ =
        items::UIController::make({context_.get_executor(), context_.get_executor(), clock_, files_,
                                   paths_, distributed_, notifications_, queue_, postLog_},
                                  nullptr);
    clock_.runUntilIdle();
    manager_ = std::make_unique<ActiveIntervalManager>(
        ActiveIntervalManager::Collaborators{context_.get_executor(), clock_, distributed_,
                                             terminations_, runner_, postLog_, queue_},
        controller_);
  }
  void list(const std::vector<core::UpdateItem>& items) {
    deliver(Name::addItemsToUIControllerQueue, core::UpdateItem::jsonText(items));
  }
  void deliver(std::string_view name, std::optional<std::string> object) {
    distributed_.deliver(0, name, std::move(object));
    clock_.runUntilIdle();
  }
  void deferred(const core::UpdateItem& forItem, Kind kind = Kind::deferral) {
    deliver(Name::dialogResponse, core::DialogResponse::fromItem(forItem, {kind, ""}).jsonText());
  }
  Calls quitAndWait(const std::string& bundle) {
    terminations_.terminate(bundle);
    clock_.advance(seconds(2));
    return launchedArguments();
  }
  static std::vector<std::string> update(const std::string& id) {
    return {"install", id, "--update-only", "--silent", "--active-interval-update"};
  }

  items::VelmoAgentQueue queue_{{context_.get_executor(), clock_, defaults_, runner_}};
  platform::fake::FakeApplicationTerminations terminations_;
  std::shared_ptr<items::UIController> controller_;
  std::unique_ptr<ActiveIntervalManager> manager_;
};

TEST_F(ActiveIntervalManagerTest, AnAppBeingInstalledStartsNothingUntilItsInstallEnds) {
  const auto foo = item("foo", "/Applications/Foo.app");
  list({foo});
  deferred(foo);
  deliver(Name::willPerformInstall, foo.jsonText());
  EXPECT_TRUE(manager_->recentlyDeferredApps().empty());
  EXPECT_EQ(quitAndWait("/Applications/Foo.app"), Calls{});
  deliver(Name::didPerformInstall, foo.jsonText());
  // The install over, a quit (its path may end in a slash) updates it one second later.
  terminations_.terminate(std::filesystem::path("/Applications/Foo.app/"));
  clock_.advance(milliseconds(999));
  EXPECT_TRUE(launcher_.launches().empty());
  clock_.advance(milliseconds(1));
  EXPECT_EQ(launchedArguments(), Calls{update("foo")});
}

TEST_F(ActiveIntervalManagerTest, ADeferredAppNoLongerListedIsUpdatedThroughTheResponse) {
  deferred(item("foo.response", "/Applications/Foo.app"));
  // A second response of that identifier with another bundle changes nothing.
  deferred(item("foo.response", "/Applications/Elsewhere.app"));
  deferred(item("bar", "/Applications/Bar.app"), Kind::forceUpdateAtDeferralLimit);
  EXPECT_EQ(manager_->recentlyDeferredApps().size(), 1u);
  EXPECT_EQ(quitAndWait("/Applications/Elsewhere.app"), Calls{});
  EXPECT_EQ(quitAndWait("/Applications/Bar.app"), Calls{});
  EXPECT_EQ(quitAndWait("/Applications/Foo.app"), Calls{update("foo.response")});
}

// Quits while an app's update runs start no second run; each set keeps its
// newest entries.
TEST_F(ActiveIntervalManagerTest, FloodsStayBounded) {
  list({item("foo", "/Applications/Foo.app")});
  launcher_.enqueue({.exitAfter = seconds(30)});
  for (int i = 0; i < 5; ++i) quitAndWait("/Applications/Foo.app");
  EXPECT_EQ(launchedArguments(), Calls{update("foo")});
  clock_.advance(seconds(30));
  EXPECT_EQ(quitAndWait("/Applications/Foo.app").size(), 2u);

  for (std::size_t i = 0; i <= ActiveIntervalManager::kMaxEntries; ++i) {
    const auto app = item("app" + std::to_string(i), "/Applications/A.app");
    deferred(app);
    deliver(Name::willPerformInstall, item("busy" + std::to_string(i), "/B.app").jsonText());
  }
  EXPECT_EQ(manager_->recentlyDeferredApps().size(), ActiveIntervalManager::kMaxEntries);
  EXPECT_EQ(manager_->recentlyDeferredApps().front().appId, "app1");
  EXPECT_EQ(manager_->ignoredApps().size(), ActiveIntervalManager::kMaxEntries);
  EXPECT_EQ(manager_->ignoredApps().front().id, "busy1");
}

// Another account's deferral counts only for a listed item, at the item's own
// path; whatever it names, the update runs with root's list, at most four
// at once beside the agent queue's installs, each under the install limit.
TEST_F(ActiveIntervalManagerTest, AnotherAccountsDeferralsNameOnlyListedItemsAtTheirPaths) {
  const auto userDeferral = [&](const std::string& id, const std::string& path) {
    auto text = core::DialogResponse::fromItem(item(id, path), {Kind::deferral, ""}).jsonText();
    distributed_.deliver({std::string(Name::dialogResponse), std::move(text), std::nullopt, 65534});
    clock_.runUntilIdle();
  };
  std::vector<core::UpdateItem> listed;
  for (int i = 0; i < 6; ++i) {
    listed.push_back(
        item("app" + std::to_string(i), "/Applications/App" + std::to_string(i) + ".app"));
  }
  list(listed);
  userDeferral("pinnedapp", "/home/u/A.app");   // Not listed: not watched at all.
  userDeferral("app0", "/home/u/Planted.app");  // Listed: watched at root's path only.
  EXPECT_EQ(quitAndWait("/home/u/A.app"), Calls{});
  EXPECT_EQ(quitAndWait("/home/u/Planted.app"), Calls{});
  for (int i = 0; i < 6; ++i) launcher_.enqueue({.exitAfter = seconds(60)});
  for (int i = 0; i < 6; ++i)
    terminations_.terminate("/Applications/App" + std::to_string(i) + ".app");
  clock_.advance(seconds(2));
  EXPECT_EQ(launchedArguments().size(), items::VelmoAgentQueue::kMaxConcurrentRuns);
  EXPECT_EQ(launchedArguments().front(), update("app0"));
  clock_.advance(seconds(60));
  EXPECT_EQ(launchedArguments().size(), 6u) << "the rest waited their turn";
}

}  // namespace
}  // namespace velmo::agent::deferrals
