#include "platform/linux/ManagedPreferencesWatcher.h"

#include <gtest/gtest.h>
#include <unistd.h>

#include <atomic>
#include <fstream>

#include <asio/io_context.hpp>

#include "core/notifications/NotificationCenter.h"
#include "core/notifications/NotificationNames.h"
#include "platform/fake/FakeDistributedNotificationCenter.h"
#include "platform/fake/VirtualClock.h"
#include "tests/support/LogCapture.h"

namespace velmo::platform::linux {
namespace {

namespace fs = std::filesystem;
using namespace std::chrono_literals;
using Posts = std::vector<core::PlistArray>;

const std::string kAgentDomain(ManagedPreferencesWatcher::kUserDefaultsDomain);
constexpr Duration kSettle = ManagedPreferencesWatcher::kSettleTime;

fs::path makeRoot() {
  static std::atomic<int> counter{0};
  return fs::temp_directory_path() /
         ("velmo-prefs-" + std::to_string(::getpid()) + "-" + std::to_string(counter++));
}

void write(const fs::path& file) { std::ofstream(file) << "<plist><dict/></plist>"; }

// As a preference writer does it: a temporary file renamed over the old one.
void writeAtomically(const fs::path& file) {
  write(file.string() + ".tmp.Xa81");
  fs::rename(file.string() + ".tmp.Xa81", file);
}

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

  // Both names go out together, with object none and the same user info.
  void expectPosts(const Posts& expected) const {
    for (auto name : {core::NotificationName::managementStatusChangedForDomains,
                      core::NotificationName::changedDomains}) {
      Posts domains;
      for (const auto& post : distributed_.postsNamed(name)) {
        EXPECT_EQ(post.object, std::nullopt);
        const auto changed = post.userInfo.value_or(core::PlistDictionary{});
        EXPECT_EQ(changed.size(), 1u);
        const auto found = changed.find(core::kChangedDomainsKey);
        const auto* array =
            found == changed.end() ? nullptr : found->second.getIf<core::PlistArray>();
        domains.push_back(array ? *array : core::PlistArray{"<bad user info>"});
      }
      EXPECT_EQ(domains, expected) << name;
    }
  }

  testing::LogCapture capture_;
  Paths paths_{makeRoot()};
  asio::io_context context_;
  fake::VirtualClock clock_{context_};
  fake::FakeDistributedNotificationCenter distributed_{context_.get_executor()};
  core::NotificationCenter inProcess_;
  int userDefaultsChanges_ = 0;
  std::unique_ptr<ManagedPreferencesWatcher> watcher_;
};

TEST_F(ManagedPreferencesWatcherTest, ABurstWithinTheSettleTimeGivesOnePostWithEveryDomain) {
  fs::create_directories(paths_.managedPreferencesDirectory());
  write(paths_.managedPreferencesFile("com.example.removed"));
  start();

  write(paths_.managedPreferencesFile("com.example.zeta"));
  ASSERT_TRUE(pumpUntilArmed());
  clock_.advance(150ms);
  writeAtomically(paths_.managedPreferencesFile("com.example.alpha"));
  fs::remove(paths_.managedPreferencesFile("com.example.removed"));
  write(paths_.managedPreferencesFile("com.example.zeta"));
  pumpFor();
  // 300 ms after the first change, but only 150 ms after the last.
  clock_.advance(150ms);
  expectPosts({});
  clock_.advance(50ms);
  expectPosts({{"com.example.alpha", "com.example.removed", "com.example.zeta"}});
}

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

struct StoreCase {
  std::string label;
  fs::path (Paths::*store)(std::string_view) const;  // The store's file of a domain.
  std::string domain;
  bool posts;  // The domain, under each name.
  int userDefaultsChanges;
};
void PrintTo(const StoreCase& store, std::ostream* out) { *out << store.label; }

class ManagedPreferencesWatcherStoreTest : public ManagedPreferencesWatcherTest,
                                           public ::testing::WithParamInterface<StoreCase> {};

TEST_P(ManagedPreferencesWatcherStoreTest, PostsWhatTheChangedStoreStandsFor) {
  const auto& [label, store, domain, posts, userDefaultsChanges] = GetParam();
  start();
  writeAtomically((paths_.*store)(domain));
  if (posts || userDefaultsChanges > 0) {
    ASSERT_TRUE(pumpUntilArmed());
  } else {
    pumpFor();
  }
  // Exactly at the settle time, not a moment later.
  clock_.advance(kSettle - 1ms);
  expectPosts({});
  clock_.advance(1ms);
  expectPosts(posts ? Posts{{domain}} : Posts{});
  EXPECT_EQ(userDefaultsChanges_, userDefaultsChanges);
}

// The agent's own stores aren't managed: they give the in-process change only.
INSTANTIATE_TEST_SUITE_P(
    Stores, ManagedPreferencesWatcherStoreTest,
    ::testing::Values(
        StoreCase{"ManagedAgentDomain", &Paths::managedPreferencesFile, kAgentDomain, true, 1},
        StoreCase{"ManagedOtherDomain", &Paths::managedPreferencesFile, "com.apple.controlcenter",
                  true, 0},
        StoreCase{"RootStoreAgentDomain", &Paths::rootPreferencesFile, kAgentDomain, false, 1},
        StoreCase{"MachineStoreAgentDomain", &Paths::machinePreferencesFile, kAgentDomain, false,
                  1},
        StoreCase{"MachineStoreOtherDomain", &Paths::machinePreferencesFile, "com.marvenith.velmo",
                  false, 0}),
    [](const auto& info) { return info.param.label; });

TEST_F(ManagedPreferencesWatcherTest, MissingFoldersAreCreatedWithMode0755) {
  start();
  for (const fs::path& folder :
       {paths_.managedPreferencesDirectory(), paths_.managedPreferencesDirectory().parent_path(),
        paths_.rootPreferencesFile(kAgentDomain).parent_path(),
        paths_.machinePreferencesFile(kAgentDomain).parent_path()}) {
    EXPECT_TRUE(fs::is_directory(folder)) << folder;
    EXPECT_EQ(fs::status(folder).permissions(), fs::perms(0755)) << folder;
  }
}

TEST_F(ManagedPreferencesWatcherTest, AFolderRemovedOrMovedAwayIsWatchedAgainAtItsPath) {
  start();
  const fs::path folder = paths_.managedPreferencesDirectory();
  write(paths_.managedPreferencesFile("com.example.removed"));
  ASSERT_TRUE(pumpUntilArmed());
  clock_.advance(kSettle);
  fs::remove_all(folder);
  ASSERT_TRUE(pumpUntilArmed());
  clock_.advance(kSettle);
  EXPECT_TRUE(fs::is_directory(folder));

  fs::rename(folder, folder.string() + ".old");
  pumpFor();
  EXPECT_TRUE(fs::is_directory(folder));
  // Changes in the moved folder no longer count; those in its successor do.
  write(fs::path(folder.string() + ".old") / "com.example.moved.plist");
  write(paths_.managedPreferencesFile("com.example.new"));
  ASSERT_TRUE(pumpUntilArmed());
  clock_.advance(kSettle);
  expectPosts({{"com.example.removed"}, {"com.example.removed"}, {"com.example.new"}});
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
