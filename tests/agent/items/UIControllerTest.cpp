#include "agent/items/UIController.h"

#include <gtest/gtest.h>

#include "core/notifications/NotificationNames.h"
#include "tests/support/AgentFakes.h"

namespace velmo::agent::items {
namespace {

namespace Name = core::NotificationName;
using std::chrono::milliseconds;
using std::chrono::seconds;

std::string itemJSON(const std::string& id, const std::string& version = "2.0") {
  return R"({"id":")" + id + R"(","friendlyName":")" + id + R"(","targetVersion":")" + version +
         R"(","installPath":"/Applications/)" + id +
         R"(.app","respectDnd":false,"respectMeetings":false})";
}
std::string arrayJSON(const std::vector<std::string>& ids) {
  std::string text = "[";
  for (const auto& id : ids) text += (text.size() > 1 ? "," : "") + itemJSON(id);
  return text + "]";
}

class UIControllerTest : public ::testing::Test, protected testing::AgentFakes {
 protected:
  // File work runs on a context of its own, so a test decides when the load ends.
  void start(bool finishLoad = true) {
    controller_ = UIController::make({.mainExecutor = context_.get_executor(),
                                      .fileExecutor = files_context_.get_executor(),
                                      .clock = clock_,
                                      .files = files_,
                                      .paths = paths_,
                                      .distributedCenter = distributed_,
                                      .notificationCenter = notifications_,
                                      .agentQueue = queue_,
                                      .postLog = postLog_},
                                     nullptr);
    if (finishLoad) settle();
  }
  // Runs file work and main work until both are quiet.
  void settle() {
    for (int i = 0; i < 10; ++i) {
      files_context_.restart();
      files_context_.poll();
      clock_.runUntilIdle();
    }
  }
  void advance(platform::Duration step) {
    const auto end = clock_.now() + step;
    while (clock_.now() < end) {
      clock_.advance(std::min<platform::Duration>(milliseconds(50), end - clock_.now()));
      settle();
    }
  }
  // As root's programs post.
  void deliver(std::string_view name, std::optional<std::string> object,
               std::optional<core::PlistDictionary> info = std::nullopt) {
    deliverFrom(0, name, std::move(object), std::move(info));
  }
  void deliverFrom(std::uint32_t uid, std::string_view name, std::optional<std::string> object,
                   std::optional<core::PlistDictionary> info = std::nullopt) {
    distributed_.deliver(uid, name, std::move(object), std::move(info));
    settle();
  }
  std::vector<std::string> ids() const {
    std::vector<std::string> result;
    for (const auto& item : controller_->updateItems()) result.push_back(item.id);
    return result;
  }
  std::vector<std::string> fileIDs() const {
    std::vector<std::string> result;
    const auto text = files_.readFile(paths_.updateStateFile());
    const auto items = text.ok() ? core::UpdateItem::arrayFromJSONText(text.value()) : std::nullopt;
    if (items) {
      for (const auto& item : *items) result.push_back(item.id);
    }
    return result;
  }
  std::size_t queueChangedPosts() const {
    return distributed_.postsNamed(Name::uiControllerQueueChanged).size();
  }

  asio::io_context files_context_;
  VelmoAgentQueue queue_{{context_.get_executor(), clock_, defaults_, runner_}};
  std::shared_ptr<UIController> controller_;
};

TEST_F(UIControllerTest, ThreeSavesWithinTheThrottleWriteTwice) {
  start();
  deliver(Name::addItemsToUIControllerQueue, arrayJSON({"a", "b", "c"}));
  EXPECT_EQ(fileIDs(), (std::vector<std::string>{"a"}));
  advance(milliseconds(300));
  // The delayed save writes the list as it stands then.
  EXPECT_EQ(fileIDs(), (std::vector<std::string>{"a", "b", "c"}));
  const std::string saved =
      "Successfully saved update state to " + paths_.updateStateFile().string();
  EXPECT_EQ(debugCount(saved), 2u);
  // One post, two seconds after the last write.
  advance(milliseconds(1990));
  EXPECT_EQ(queueChangedPosts(), 0u);
  advance(milliseconds(20));
  EXPECT_EQ(queueChangedPosts(), 1u);
}

struct BadInput {
  const char* name;
  std::string_view notification;
  std::optional<std::string> object;
  std::optional<core::PlistDictionary> info;
  const char* error;
};

class UIControllerBadInput : public UIControllerTest,
                             public ::testing::WithParamInterface<BadInput> {};

TEST_P(UIControllerBadInput, IsALoggedNoOp) {
  start();
  deliver(Name::addItemsToUIControllerQueue, arrayJSON({"a"}));
  advance(seconds(3));
  const auto posts = distributed_.posts().size();
  deliver(GetParam().notification, GetParam().object, GetParam().info);
  advance(seconds(5));
  EXPECT_EQ(capture_.errors(), std::vector<std::string>{GetParam().error});
  EXPECT_EQ(ids(), std::vector<std::string>{"a"});
  EXPECT_EQ(fileIDs(), std::vector<std::string>{"a"});
  EXPECT_EQ(distributed_.posts().size(), posts);
  EXPECT_TRUE(launcher_.launches().empty());
}

const char* kItemsError = "Failed to decode items from notification.";
const char* kItemError = "Failed to decode item from notification.";
const char* kStateError = "Invalid state change notification.";
using Info = core::PlistDictionary;

INSTANTIATE_TEST_SUITE_P(
    Table, UIControllerBadInput,
    // No object, no JSON, wrong types and no user info, for every name, are
    // posted end to end by tests/e2e/hostile_test.sh.
    ::testing::Values(
        BadInput{
            "AddWithOneItem", Name::addItemsToUIControllerQueue, itemJSON("b"), {}, kItemsError},
        BadInput{"AddWithOneBadElement",
                 Name::addItemsToUIControllerQueue,
                 "[" + itemJSON("b") + R"(,{"id":"c"}])",
                 {},
                 kItemsError},
        BadInput{"EnqueueAnArray", Name::enqueueUpdateItem, arrayJSON({"b"}), {}, kItemError},
        BadInput{"StateWithoutID", Name::updateItemStateChange, std::nullopt,
                 Info{{"state", "installed"}}, kStateError},
        // A capital makes it no state at all, listed or not.
        BadInput{"StateWithACapital", Name::updateItemStateChange, std::nullopt,
                 Info{{"id", "a"}, {"state", "Installed"}}, kStateError},
        BadInput{"StateUnlistedWithACapital", Name::updateItemStateChange, std::nullopt,
                 Info{{"id", "zz"}, {"state", "Installed"}}, kStateError}),
    [](const auto& info) { return std::string(info.param.name); });

TEST_F(UIControllerTest, OnlyInstalledRemovesAndOnlyAfterThreeSeconds) {
  start();
  deliver(Name::addItemsToUIControllerQueue, arrayJSON({"a", "b"}));
  advance(seconds(1));
  deliver(Name::updateItemStateChange, std::nullopt, Info{{"id", "a"}, {"state", "failed"}});
  deliver(Name::updateItemStateChange, std::nullopt, Info{{"id", "zz"}, {"state", "installed"}});
  EXPECT_EQ(debugCount("Discarding state change notification alien ID zz."), 1u);
  deliver(Name::updateItemStateChange, std::nullopt, Info{{"id", "b"}, {"state", "installed"}});
  EXPECT_EQ(debugCount("Scheduling removal of update item: b after 3.0 seconds."), 1u);
  advance(milliseconds(2950));
  EXPECT_EQ(ids(), (std::vector<std::string>{"a", "b"}));
  advance(milliseconds(100));
  EXPECT_EQ(ids(), std::vector<std::string>{"a"});
  advance(seconds(1));
  EXPECT_EQ(fileIDs(), std::vector<std::string>{"a"});
  EXPECT_TRUE(capture_.errors().empty());
}

TEST_F(UIControllerTest, ItemsThatArriveBeforeTheLoadEndsAreKept) {
  files_.addFile(paths_.updateStateFile(), arrayJSON({"x", "y", "z"}));
  start(/*finishLoad=*/false);
  distributed_.deliver(0, Name::addItemsToUIControllerQueue, arrayJSON({"new", "y"}));
  clock_.runUntilIdle();
  EXPECT_FALSE(controller_->isLoaded());
  settle();
  EXPECT_EQ(debugCount("Loaded update state for 3 items."), 1u);
  EXPECT_EQ(ids(), (std::vector<std::string>{"x", "y", "z", "new"}));
  // The save asked for meanwhile waited for the merge.
  EXPECT_EQ(fileIDs(), (std::vector<std::string>{"x", "y", "z", "new"}));
}

TEST_F(UIControllerTest, AnEnqueuedItemGoesToTheQueueNotToTheList) {
  start();
  deliver(Name::addItemsToUIControllerQueue, arrayJSON({"a"}));
  deliver(Name::enqueueUpdateItem, itemJSON("a"));
  deliver(Name::enqueueUpdateItem, itemJSON("b"));
  EXPECT_EQ(launcher_.launches().size(), 2u);
  EXPECT_EQ(ids(), std::vector<std::string>{"a"});
}

// Who may do what: root lists items and installs anything; any other
// account, known or not, installs only what is listed.
struct SenderCase {
  const char* name;
  std::uint32_t uid;
  bool lists;
  bool installsUnlisted;
};

void PrintTo(const SenderCase& c, std::ostream* os) { *os << c.name; }

class UIControllerSenders : public UIControllerTest,
                            public ::testing::WithParamInterface<SenderCase> {};

TEST_P(UIControllerSenders, DecideWhatIsListedAndInstalled) {
  const SenderCase& c = GetParam();
  start();
  deliver(Name::addItemsToUIControllerQueue, arrayJSON({"listed"}));
  deliverFrom(c.uid, Name::addItemsToUIControllerQueue, arrayJSON({"added"}));
  EXPECT_EQ(ids(), c.lists ? (std::vector<std::string>{"listed", "added"})
                           : std::vector<std::string>{"listed"});
  deliverFrom(c.uid, Name::enqueueUpdateItem, itemJSON("listed"));
  deliverFrom(c.uid, Name::enqueueUpdateItem, itemJSON("unlisted"));
  std::vector<std::string> installed;
  for (const auto& launch : launcher_.launches()) installed.push_back(launch.arguments.at(1));
  EXPECT_EQ(installed, c.installsUnlisted ? (std::vector<std::string>{"listed", "unlisted"})
                                          : std::vector<std::string>{"listed"});
}

INSTANTIATE_TEST_SUITE_P(
    Table, UIControllerSenders,
    ::testing::Values(SenderCase{"Root", 0, true, true}, SenderCase{"User", 501, false, false},
                      SenderCase{"Unknown", platform::DistributedNotification::kUnknownSender,
                                 false, false}),
    [](const auto& info) { return std::string(info.param.name); });

// An add that would take the list beyond its bound is refused whole; one that
// fills it exactly, overwriting as it goes, is taken.
TEST_F(UIControllerTest, TheListTakesAtMostAThousandItems) {
  start();
  std::vector<std::string> many;
  for (std::size_t i = 1; i < UIController::kMaxItems; ++i) many.push_back("i" + std::to_string(i));
  deliver(Name::addItemsToUIControllerQueue, arrayJSON(many));
  deliver(Name::addItemsToUIControllerQueue, arrayJSON({"i1", "new1", "new2"}));
  EXPECT_EQ(capture_.errors(),
            std::vector<std::string>{
                "Refused 3 update items: the list holds 999 and takes at most 1000."});
  deliver(Name::addItemsToUIControllerQueue, arrayJSON({"i1", "new1", "new1"}));
  advance(seconds(1));
  EXPECT_EQ(ids().size(), UIController::kMaxItems);
  EXPECT_EQ(ids().back(), "new1");
  EXPECT_EQ(fileIDs().size(), UIController::kMaxItems);
}

TEST_F(UIControllerTest, ACheckWithoutARunCompletesAtOnceWithoutProgress) {
  start();
  deliver(Name::userInitiatedUpdateCheck, std::nullopt);
  advance(seconds(5));
  EXPECT_EQ(distributed_.postsNamed(Name::userInitiatedUpdateCheckCompleted).size(), 1u);
  EXPECT_EQ(distributed_.postsNamed(Name::userInitiatedUpdateCheckInProgress).size(), 0u);
}

}  // namespace
}  // namespace velmo::agent::items
