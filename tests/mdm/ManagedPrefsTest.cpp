#include "mdm/ManagedPrefs.h"

#include <gtest/gtest.h>

#include <asio/co_spawn.hpp>
#include <asio/detached.hpp>
#include <asio/io_context.hpp>

#include "backends/fake/FakeDistributedNotificationCenter.h"
#include "backends/fake/FakePreferenceStores.h"
#include "backends/fake/FakeWorkspaceEvents.h"
#include "backends/fake/VirtualClock.h"

namespace velmo::mdm {
namespace {

using std::chrono::milliseconds;

constexpr const char* kAgent = "com.marvenith.velmo-agent";

class ManagedPrefsTest : public ::testing::Test {
 protected:
  std::unique_ptr<ManagedPrefs> make() {
    return std::make_unique<ManagedPrefs>(ManagedPrefs::Collaborators{
        context_.get_executor(), clock_, stores_, distributed_, notifications_, workspace_});
  }

  // Runs an awaitable getter to its answer.
  template <typename T>
  T answer(asio::awaitable<T> getter) {
    std::optional<T> result;
    asio::co_spawn(context_, std::move(getter),
                   [&](std::exception_ptr, T value) { result = value; });
    clock_.runUntilIdle();
    EXPECT_TRUE(result.has_value());
    return result.value_or(T{});
  }

  asio::io_context context_;
  platform::fake::VirtualClock clock_{context_};
  platform::fake::FakePreferenceStores stores_;
  platform::fake::FakeDistributedNotificationCenter distributed_{context_.get_executor(), 0};
  core::NotificationCenter notifications_;
  platform::fake::FakeWorkspaceEvents workspace_;
};

TEST_F(ManagedPrefsTest, ManagedValuesWinOverRootsStoreKeyByKey) {
  stores_.setManaged(kAgent, {{"DisableSelfUpdate", false}});
  stores_.setRoot(kAgent, {{"DisableSelfUpdate", true}, {"SkipFirstVelmoAgentRun", true}});
  auto prefs = make();
  EXPECT_FALSE(answer(prefs->boolValue("DisableSelfUpdate", ManagedDomain::velmoAgent, true)));
  EXPECT_TRUE(answer(prefs->boolValue("SkipFirstVelmoAgentRun", ManagedDomain::velmoAgent, false)));
  EXPECT_EQ(answer(prefs->string("Missing", ManagedDomain::velmoAgent, "fallback")), "fallback");
  prefs.reset();  // A released instance leaves no observer behind.
  EXPECT_EQ(workspace_.observerCount(), 0u);
}

TEST_F(ManagedPrefsTest, AStormOfChangesCausesOneReload200msAfterTheLast) {
  auto prefs = make();
  ASSERT_EQ(prefs->loadCount(), 1u);
  stores_.setManaged(kAgent, {{"UpdateAll", true}});
  // 100 events within 150 ms, from every kind of source.
  for (int i = 0; i < 100; ++i) {
    switch (i % 4) {
      case 0:
        distributed_.deliver(0, "com.apple.MCX.changedDomains");
        break;
      case 1:
        distributed_.deliver(0, "com.apple.configurationprofiles.payloadChanged");
        break;
      case 2:
        notifications_.post("NSUserDefaultsDidChangeNotification");
        break;
      default:
        workspace_.send(platform::WorkspaceEvent::didWake);
    }
    if (i < 99) clock_.advance(std::chrono::microseconds(1500));  // 100 events in 148.5 ms.
  }
  clock_.advance(milliseconds(199));
  EXPECT_EQ(prefs->loadCount(), 1u);
  EXPECT_FALSE(answer(prefs->boolValue("UpdateAll", ManagedDomain::velmoAgent, false)));
  clock_.advance(milliseconds(1));
  EXPECT_EQ(prefs->loadCount(), 2u);
  EXPECT_TRUE(answer(prefs->boolValue("UpdateAll", ManagedDomain::velmoAgent, false)));
  clock_.advance(std::chrono::seconds(5));
  EXPECT_EQ(prefs->loadCount(), 2u);
}

}  // namespace
}  // namespace velmo::mdm
