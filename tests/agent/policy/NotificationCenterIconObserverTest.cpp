#include "agent/policy/NotificationCenterIconObserver.h"

#include <gtest/gtest.h>

#include "tests/support/AgentFakes.h"

namespace velmo::agent::policy {
namespace {

using std::chrono::seconds;

constexpr const char* kNotifier = "com.marvenith.velmo-notifier";

std::vector<std::string> setIcon(const std::string& icon) {
  return {"notifier", "set-icon", "--icon", icon, "--restart-velmo-notifier", "--restart-nc"};
}

class NotificationCenterIconObserverTest : public ::testing::Test, protected testing::AgentFakes {
 protected:
  void start() {
    prefs_ = makePrefs();
    observer_ = NotificationCenterIconObserver::make(
        {context_.get_executor(), clock_, distributed_, *prefs_, runner_});
    clock_.runUntilIdle();
  }
  // The administrator sets (or clears) the icon; a policy notification for
  // `domain` follows, and the quiet time passes.
  void setPolicy(std::optional<std::string> icon, const std::string& domain = kNotifier) {
    if (icon) {
      stores_.setManaged(kNotifier, {{"NotificationCenterIcon", *icon}});
    } else {
      stores_.removeManaged(kNotifier);
    }
    notify(domain);
    clock_.advance(seconds(6));
  }
  // Both names, as the platform posts them for a profile change; only the
  // second reloads the preferences.
  void notify(const std::string& domain) {
    for (const char* name :
         {"com.apple.MCX._managementStatusChangedForDomains", "com.apple.MCX.changedDomains"}) {
      distributed_.deliver(0, name, std::nullopt,
                           core::PlistDictionary{{"com.apple.MCX.changedDomains",
                                                  core::PlistArray{core::PlistValue(domain)}}});
    }
  }

  std::unique_ptr<mdm::ManagedPrefs> prefs_;
  std::shared_ptr<NotificationCenterIconObserver> observer_;
};

TEST_F(NotificationCenterIconObserverTest, AppliesEachNewValueOnce) {
  start();
  EXPECT_TRUE(launchedArguments().empty());
  EXPECT_EQ(debugCount("NotificationCenterIconObserver initialized"), 1u);

  setPolicy("A", "com.marvenith.velmo");  // Another domain: nothing happens.
  EXPECT_TRUE(launchedArguments().empty());
  setPolicy("A");
  setPolicy("A");  // Unchanged.
  setPolicy("B");
  EXPECT_EQ(launchedArguments(), (Calls{setIcon("A"), setIcon("B")}));
  EXPECT_TRUE(logged("NotificationCenterIcon changed; updating icon to: B"));

  setPolicy(std::nullopt);  // Cleared: the icon stays as the tool left it.
  EXPECT_EQ(debugCount("NotificationCenterIcon cleared; skipping icon update."), 1u);
  setPolicy("B");  // Absent before, so B is new again.
  EXPECT_EQ(launchedArguments(), (Calls{setIcon("A"), setIcon("B"), setIcon("B")}));
}

TEST_F(NotificationCenterIconObserverTest, AFailedValueIsNotTriedAgain) {
  stores_.setManaged(kNotifier, {{"NotificationCenterIcon", "/Library/Icon.png"}});
  launcher_.enqueue({.exitAfter = seconds(1), .exitStatus = 3});
  start();
  clock_.advance(seconds(1));
  EXPECT_TRUE(logged("Failed to set Velmo app icon with exit code: 3"));
  setPolicy("/Library/Icon.png");
  EXPECT_EQ(launchedArguments(), Calls{setIcon("/Library/Icon.png")});
  EXPECT_EQ(observer_->currentIcon(), "/Library/Icon.png");
}

}  // namespace
}  // namespace velmo::agent::policy
