#include "agent/run/VelmoRunJob.h"

#include <gtest/gtest.h>

#include <asio/co_spawn.hpp>
#include <asio/detached.hpp>

#include "core/notifications/NotificationNames.h"
#include "tests/support/AgentFakes.h"

namespace velmo::agent::run {
namespace {

using std::chrono::hours;
using std::chrono::seconds;

class VelmoRunJobTest : public ::testing::Test, protected testing::AgentFakes {
 protected:
  void enableMenuBarApp() {
    stores_.setManaged("com.marvenith.velmo-notifier", {{"EnableMenuBarApp", true}});
    prefs_.reset();
    prefs_ = makePrefs();
  }

  // Runs one job to its end in virtual time; gives the virtual time it took.
  platform::Duration runJob(bool runningAppsFirst = false) {
    VelmoRunJob job(
        {context_.get_executor(), defaults_, *prefs_, distributed_, runner_, inventory_},
        runningAppsFirst);
    bool done = false;
    const auto start = clock_.now();
    platform::TimePoint end;
    asio::co_spawn(
        context_,
        [&]() -> asio::awaitable<void> {
          co_await job.run();
          end = clock_.now();
          done = true;
        },
        asio::detached);
    clock_.advance(hours(6));
    EXPECT_TRUE(done);
    return end - start;
  }

  std::unique_ptr<mdm::ManagedPrefs> prefs_ = makePrefs();
  InventoryUpdater inventory_{launcher_, clock_, "/usr/local/bin/jamf"};
};

TEST_F(VelmoRunJobTest, EachCommandGetsTheTimeLimitOfItsVerb) {
  defaults_.set("UpdateAll", true);
  launcher_.enqueue({.exitAfterTerminate = seconds(0)});  // install: never ends by itself
  launcher_.enqueue({.exitAfterTerminate = seconds(0)});  // update-all: the same
  const auto install = clock_.scheduleAfter(hours(1), context_.get_executor(), [this] {
    distributed_.deliver(0, core::NotificationName::didPerformInstall);
  });
  EXPECT_EQ(runJob(), hours(2) + std::chrono::minutes(90));
  EXPECT_EQ(capture_.errors().size(), 4u);  // Two time-out lines, two exit-code lines.
  // Installs count while a job runs, and only then.
  EXPECT_TRUE(logged("Installations during this Velmo Run: 1"));
  EXPECT_EQ(distributed_.observerCount(core::NotificationName::didPerformInstall), 0u);
}

}  // namespace
}  // namespace velmo::agent::run
