// A whole run job against the stand-in tool on a private bus: the tool's
// vectors, its install notifications and the end-of-run notification all
// cross real process and bus boundaries.
#include <gtest/gtest.h>
#include <unistd.h>

#include <cstdlib>
#include <fstream>

#include <asio/co_spawn.hpp>
#include <asio/detached.hpp>
#include <asio/io_context.hpp>

#include "agent/run/VelmoRunJob.h"
#include "core/NotificationNames.h"
#include "platform/fake/FakePreferenceStores.h"
#include "platform/fake/FakeUserDefaults.h"
#include "platform/fake/FakeWorkspaceEvents.h"
#include "platform/linux/PosixProcessLauncher.h"
#include "platform/linux/SdBusNotificationCenter.h"
#include "platform/linux/SystemClock.h"
#include "tests/support/BusTesting.h"
#include "tests/support/LogCapture.h"
#include "tests/support/PrivateBus.h"

namespace velmo::agent::run {
namespace {

std::vector<std::string> lines(const std::filesystem::path& file) {
  std::vector<std::string> result;
  std::ifstream stream(file);
  for (std::string line; std::getline(stream, line);) result.push_back(line);
  return result;
}

TEST(VelmoRunJobBus, ARunAgainstTheStandInToolCountsItsInstallsAndAnnouncesTheEnd) {
  testing::PrivateBus bus;
  char pattern[] = "/tmp/velmo-job-XXXXXX";
  const std::filesystem::path directory = ::mkdtemp(pattern);
  const auto record = directory / "calls.log";
  ::setenv("VELMO_STANDIN_RECORD", record.c_str(), 1);
  ::setenv("VELMO_STANDIN_FAIL_VERB", "install", 1);  // The first command fails...
  ::setenv("VELMO_STANDIN_INSTALLS", "1", 1);         // ...each reports one install.

  testing::LogCapture capture;
  asio::io_context context;
  platform::linux::SystemClock clock;
  platform::linux::SdBusConnection connection(context.get_executor(), clock);
  connection.start();
  ASSERT_TRUE(connection.isConnected());
  platform::linux::SdBusNotificationCenter center(connection);
  int completions = 0;
  center.addObserver(core::NotificationName::velmoAgentUpdateTasksCompleted,
                     [&](const auto&) { ++completions; });

  platform::fake::FakeUserDefaults defaults;
  defaults.setObject("UpdateAll", true);
  defaults.setObject("InstallOrUpdate", core::PlistArray{"com.example.a", "com.example.b"});
  defaults.setObject("RespectMeetings", true);
  platform::fake::FakePreferenceStores stores;
  stores.setManaged("com.marvenith.velmo-notifier", {{"EnableMenuBarApp", true}});
  core::NotificationCenter notifications;
  platform::fake::FakeWorkspaceEvents workspace;
  mdm::ManagedPrefs prefs(
      {context.get_executor(), clock, stores, center, notifications, workspace});

  platform::linux::PosixProcessLauncher launcher;
  VelmoRunner runner(launcher, clock, std::string(VELMO_TEST_SUPPORT_DIR) + "/velmo-standin");
  InventoryUpdater inventory(launcher, clock, "/nonexistent/jamf");
  VelmoRunJob job({context.get_executor(), defaults, prefs, center, runner, inventory}, false);
  bool done = false;
  asio::co_spawn(
      context,
      [&]() -> asio::awaitable<void> {
        co_await job.run();
        done = true;
      },
      asio::detached);
  ASSERT_TRUE(testing::runUntil(
      context, [&] { return done && completions == 1; }, std::chrono::seconds(30)));

  // The installed IDs are also excluded from the update-all pass.
  EXPECT_EQ(lines(record),
            (std::vector<std::string>{
                "install marvenith-velmo com.example.a com.example.b --respect-meetings "
                "--menu-bar-notification",
                "update-all --respect-exclusions-preference --exclusions com.example.a "
                "com.example.b --respect-meetings --menu-bar-notification"}));
  EXPECT_EQ(capture.errors(), std::vector<std::string>{"Velmo Run failed with exit code: 1"});
  EXPECT_NE(capture.standardOutput().find("Installations during this Velmo Run: 2"),
            std::string::npos)
      << capture.standardOutput();

  for (const char* name :
       {"VELMO_STANDIN_RECORD", "VELMO_STANDIN_FAIL_VERB", "VELMO_STANDIN_INSTALLS"}) {
    ::unsetenv(name);
  }
  std::filesystem::remove_all(directory);
}

}  // namespace
}  // namespace velmo::agent::run
