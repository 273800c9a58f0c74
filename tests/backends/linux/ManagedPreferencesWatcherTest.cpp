#include "backends/linux/ManagedPreferencesWatcher.h"

#include <gtest/gtest.h>
#include <unistd.h>

#include <atomic>
#include <fstream>

#include <asio/io_context.hpp>

#include "backends/fake/FakeDistributedNotificationCenter.h"
#include "backends/fake/VirtualClock.h"
#include "core/notifications/NotificationCenter.h"
#include "core/notifications/NotificationNames.h"
#include "tests/support/LogCapture.h"

namespace velmo::platform::linux {
namespace {

namespace fs = std::filesystem;
using namespace std::chrono_literals;

const std::string kAgentDomain(ManagedPreferencesWatcher::kUserDefaultsDomain);

fs::path makeRoot() {
  static std::atomic<int> counter{0};
  return fs::temp_directory_path() /
         ("velmo-prefs-" + std::to_string(::getpid()) + "-" + std::to_string(counter++));
}

void write(const fs::path& file) { std::ofstream(file) << "<plist><dict/></plist>"; }

class ManagedPreferencesWatcherTest : public ::testing::Test {
 protected:
  ManagedPreferencesWatcherTest() {
    inProcess_.addObserver(core::NotificationName::userDefaultsDidChange,
                           [this](const std::any&) { ++userDefaultsChanges_; });
  }
  ~ManagedPreferencesWatcherTest() override {
    watcher_.reset();
    fs::remove_all(paths_.root());
  }
  void TearDown() override { EXPECT_EQ(capture_.errors(), std::vector<std::string>{}); }

  void start() {
    watcher_ = std::make_unique<ManagedPreferencesWatcher>(ManagedPreferencesWatcher::Collaborators{
        context_.get_executor(), clock_, paths_, distributed_, inProcess_});
  }

  // Serves the inotify descriptor in short real slices until the events of
  // the test's file operations have armed the settle timer. Bounded.
  bool pumpUntilArmed() {
    const auto deadline = std::chrono::steady_clock::now() + 2s;
    while (clock_.pendingTimers() == 0 && std::chrono::steady_clock::now() < deadline) {
      pumpFor(5ms);
    }
    return clock_.pendingTimers() > 0;
  }
  // The events of finished file operations are queued already; this serves them.
  void pumpFor(std::chrono::milliseconds slice = 50ms) {
    context_.restart();
    context_.run_for(slice);
  }

  testing::LogCapture capture_;
  Paths paths_{makeRoot()};
  asio::io_context context_;
  fake::VirtualClock clock_{context_};
  fake::FakeDistributedNotificationCenter distributed_{context_.get_executor(), 0};
  core::NotificationCenter inProcess_;
  int userDefaultsChanges_ = 0;
  std::unique_ptr<ManagedPreferencesWatcher> watcher_;
};

TEST_F(ManagedPreferencesWatcherTest, FilesThatAreNoPlistOfAWatchedDomainPostNothing) {
  start();
  const fs::path folder = paths_.managedPreferencesDirectory();
  for (const char* name : {"com.example.app.plist.tmp.Xa81", "notes.txt", ".plist"}) {
    write(folder / name);
  }
  fs::create_directory(folder / "someone.plist");
  write(paths_.machinePreferencesFile("com.example.app"));
  write(paths_.rootPreferencesFile("com.example.app"));
  pumpFor();
  EXPECT_EQ(clock_.pendingTimers(), 0u);
  clock_.advance(1s);
  EXPECT_TRUE(distributed_.posts().empty());
  EXPECT_EQ(userDefaultsChanges_, 0);
}

TEST_F(ManagedPreferencesWatcherTest, AWatcherDestroyedMidBurstPostsNothing) {
  start();
  write(paths_.managedPreferencesFile(kAgentDomain));
  ASSERT_TRUE(pumpUntilArmed());
  watcher_.reset();
  clock_.advance(1s);
  EXPECT_TRUE(distributed_.posts().empty());
  EXPECT_EQ(userDefaultsChanges_, 0);
}

}  // namespace
}  // namespace velmo::platform::linux
