#include <sys/stat.h>

#include <ctime>
#include <fstream>
#include <set>

#include <gtest/gtest.h>

#include "agent/maintenance/CachePruner.h"
#include "agent/maintenance/LogTruncator.h"
#include "agent/maintenance/MaintenanceManager.h"
#include "agent/maintenance/TempArtifactCleaner.h"
#include "agent/maintenance/ToolLinkMaintainer.h"
#include "backends/linux/PosixFileManager.h"
#include "tests/support/AgentFakes.h"

namespace velmo::agent::maintenance {
namespace {

namespace fs = std::filesystem;
using std::chrono::hours;
using Days = std::chrono::duration<std::int64_t, std::ratio<86'400>>;

// The real file manager, with removals that can be made to fail and
// creation dates that can be hidden.
class DiskFiles final : public platform::linux::PosixFileManager {
 public:
  std::set<std::string> failRemovalOf;
  bool hideCreationDates = false;

  platform::FileResult<> removeItem(const fs::path& path, const fs::path& fixedFolder) override {
    if (failRemovalOf.count(path.filename().string())) {
      return platform::FileError{"Operation not permitted", "NSPOSIXErrorDomain", 1};
    }
    return PosixFileManager::removeItem(path, fixedFolder);
  }
  platform::FileResult<std::vector<platform::DirectoryEntry>> contentsOfDirectory(
      const fs::path& path, const fs::path& fixedFolder, bool skipHiddenFiles) const override {
    auto listing = PosixFileManager::contentsOfDirectory(path, fixedFolder, skipHiddenFiles);
    if (listing.ok() && hideCreationDates) {
      for (auto& entry : listing.value()) entry.creationDate.reset();
    }
    return listing;
  }
};

// Each test works in a fresh folder; `outside` holds what a link may point
// to but no job may touch.
class MaintenanceJobsTest : public ::testing::Test, protected testing::AgentFakes {
 protected:
  void SetUp() override {
    char pattern[] = "/tmp/velmo-maintenance-XXXXXX";
    base_ = ::mkdtemp(pattern);
    root_ = base_ / "root";
    outside_ = base_ / "outside";
    fs::create_directories(outside_ / "keep");
    write(outside_ / "keep" / "precious", "x");
  }
  void TearDown() override { fs::remove_all(base_); }

  static void write(const fs::path& path, const std::string& contents = "media") {
    fs::create_directories(path.parent_path());
    std::ofstream(path, std::ios::binary) << contents;
  }
  std::size_t filesIn(const fs::path& folder) const {
    return static_cast<std::size_t>(std::distance(fs::directory_iterator(folder), {}));
  }
  // Whether any level logged `text`.
  bool loggedAnywhere(const std::string& text) const {
    return logged(text) || debugCount(text) > 0;
  }

  CachePruner pruner() { return {disk_, diskClock_, root_ / "cache", logger_}; }
  TempArtifactCleaner cleaner() {
    return {disk_, diskClock_, {root_ / "Applications", root_ / "Applications/Utilities"}, logger_};
  }

  fs::path base_, root_, outside_;
  DiskFiles disk_;
  // Creation dates are the real ones; the jobs' clock is moved past them.
  platform::fake::VirtualClock diskClock_{context_, std::chrono::system_clock::now()};
  core::CustomLogger logger_{"MaintenanceManager"};
};

// On a 5 MB limit, a file of exactly 5 MB stays whole, and so does one whose
// tail holds no newline to cut after.
TEST_F(MaintenanceJobsTest, LogTruncationLeavesWholeWhatItMustNotCut) {
  const fs::path log = root_ / "marvenith-velmo.log";
  constexpr std::size_t kLimit = 5 * 1'048'576;
  std::string atLimit(kLimit, 'a');
  for (std::size_t i = 99; i < kLimit; i += 100) atLimit[i] = '\n';
  const std::string noNewline = "a\n" + std::string(kLimit, 'b');
  for (const auto& [contents, line] :
       {std::pair{atLimit, "is already within the limit"},
        std::pair{noNewline, "Failed to find a suitable truncation position."}}) {
    write(log, contents);
    LogTruncator(disk_, log, logger_).truncateLogFile(5);
    EXPECT_TRUE(loggedAnywhere(line)) << line;
    EXPECT_TRUE(disk_.readFile(log).value() == contents) << line;
  }
}

// Temp artifacts, by name, with a one-day limit.
struct ArtifactCase {
  const char* name;
  std::string (*entry)(platform::TimePoint now);
  bool removed;
};
void PrintTo(const ArtifactCase& c, std::ostream* os) { *os << c.name; }

// ".Foo.app.new-20260310T140509Z-1a2B3c4D" for an instant.
std::string artifact(platform::TimePoint at, const std::string& hex = "1a2B3c4D") {
  const std::time_t seconds = std::chrono::system_clock::to_time_t(at);
  std::tm parts{};
  ::gmtime_r(&seconds, &parts);
  char stamp[32];
  std::strftime(stamp, sizeof stamp, "%Y%m%dT%H%M%SZ", &parts);
  return ".Foo.app.new-" + std::string(stamp) + "-" + hex;
}

class TempArtifactNameTest : public MaintenanceJobsTest,
                             public ::testing::WithParamInterface<ArtifactCase> {};

TEST_P(TempArtifactNameTest, OnlyOldNamesOfTheFormGo) {
  const auto now = std::chrono::time_point_cast<std::chrono::seconds>(diskClock_.now());
  const fs::path entry = root_ / "Applications" / GetParam().entry(now);
  write(entry / "Contents" / "Info.plist");
  cleaner().cleanUpTempArtifacts(1);
  EXPECT_EQ(!fs::exists(entry), GetParam().removed);
}

INSTANTIATE_TEST_SUITE_P(
    Cases, TempArtifactNameTest,
    ::testing::Values(
        ArtifactCase{"TwentyThreeHoursOld", [](auto now) { return artifact(now - hours(23)); },
                     false},
        ArtifactCase{"ExactlyAtTheCutoff", [](auto now) { return artifact(now - hours(24)); },
                     true},
        ArtifactCase{"Old",
                     [](auto now) { return ".Foo.app.old-" + artifact(now - Days(3)).substr(13); },
                     true},
        ArtifactCase{"NoLeadingDot", [](auto now) { return artifact(now - Days(3)).substr(1); },
                     false},
        ArtifactCase{"SevenHexDigits", [](auto now) { return artifact(now - Days(3), "1a2b3c4"); },
                     false},
        ArtifactCase{"MonthThirteen",
                     [](auto) { return std::string(".Foo.app.new-20251399T000000Z-1a2b3c4d"); },
                     false},
        ArtifactCase{"NeitherNewNorOld",
                     [](auto) { return std::string(".Foo.app.tmp-20200101T000000Z-1a2b3c4d"); },
                     false}),
    [](const auto& info) { return std::string(info.param.name); });

TEST_F(MaintenanceJobsTest, TenRemovalsPerFolderAndAFailureTakesNoPlace) {
  const auto old = diskClock_.now() - Days(2);
  for (int i = 0; i < 12; ++i)
    write(root_ / "Applications" / artifact(old, "0000000" + std::string(1, "0123456789ab"[i])));
  disk_.failRemovalOf = {artifact(old, "00000000")};
  cleaner().cleanUpTempArtifacts(1);
  // One failed, ten went, the twelfth waits for the next cycle.
  EXPECT_EQ(filesIn(root_ / "Applications"), 2u);
  EXPECT_TRUE(logged("Reached temp cleanup limit (10) in " + (root_ / "Applications").string()));
  EXPECT_TRUE(logged("Couldn’t remove temp artifact: " + artifact(old, "00000000")));
  EXPECT_EQ(debugCount("Temp cleanup skipped; directory missing: "), 1u);  // No Utilities.
}

// Cache pruning, with a seven-day limit.
TEST_F(MaintenanceJobsTest, SixtyOldFilesLoseFiftyPerCycle) {
  for (int i = 0; i < 60; ++i) write(root_ / "cache/media" / ("file" + std::to_string(i)));
  write(root_ / "cache/loose-file");
  diskClock_.advance(Days(8));
  pruner().pruneCache(7);
  EXPECT_EQ(filesIn(root_ / "cache/media"), 10u);
  EXPECT_TRUE(logged("Reached deletion limit (50) for this prune cycle."));
  pruner().pruneCache(7);
  // The emptied folder goes; the root and the file directly in it stay.
  EXPECT_FALSE(fs::exists(root_ / "cache/media"));
  EXPECT_TRUE(logged("Deleted empty directory: " + (root_ / "cache/media").string()));
  EXPECT_TRUE(fs::exists(root_ / "cache/loose-file"));
  EXPECT_EQ(filesIn(root_ / "cache"), 1u);
}

TEST_F(MaintenanceJobsTest, AFileOfExactlySevenDaysStays) {
  write(root_ / "cache/media/file");
  const auto listing = disk_.contentsOfDirectory(root_ / "cache/media", root_, true);
  const auto born = *listing.value().at(0).creationDate;
  diskClock_.advance(born + Days(7) - diskClock_.now());
  pruner().pruneCache(7);
  EXPECT_TRUE(fs::exists(root_ / "cache/media/file"));
  diskClock_.advance(std::chrono::nanoseconds(1));
  pruner().pruneCache(7);
  EXPECT_FALSE(fs::exists(root_ / "cache/media/file"));
}

TEST_F(MaintenanceJobsTest, BundlesAreNeitherEnteredNorRemovedByTheEmptyFolderStep) {
  write(root_ / "cache/media/old.pkg");
  fs::create_directories(root_ / "cache/media/Tool.app/Contents");
  write(root_ / "cache/Bundle.app/old.dmg");
  fs::create_directories(root_ / "cache/nested/empty");
  write(root_ / "cache/nested/old.zip");
  diskClock_.advance(Days(8));
  pruner().pruneCache(7);
  // The media folder keeps its bundle, so it stays.
  EXPECT_FALSE(fs::exists(root_ / "cache/media/old.pkg"));
  EXPECT_TRUE(fs::exists(root_ / "cache/media/Tool.app/Contents"));
  EXPECT_EQ(debugCount("Skipping app bundle during cache prune: "), 1u);
  // A bundle directly under the root is walked, but not pruned.
  EXPECT_FALSE(fs::exists(root_ / "cache/Bundle.app/old.dmg"));
  EXPECT_TRUE(fs::exists(root_ / "cache/Bundle.app"));
  EXPECT_EQ(debugCount("Skipping pruning inside app bundle: "), 1u);
  // A folder with an empty subfolder and one old file loses all three.
  EXPECT_FALSE(fs::exists(root_ / "cache/nested"));
}

// The tool link: what is at the link path, and the defaults key.
enum class AtLink { nothing, ours, elsewhere, dangling, regularFile };
struct LinkCase {
  const char* name;
  AtLink before;
  bool removeKey;
  AtLink after;
  const char* line;
};
void PrintTo(const LinkCase& c, std::ostream* os) { *os << c.name; }

class ToolLinkTest : public MaintenanceJobsTest, public ::testing::WithParamInterface<LinkCase> {
 protected:
  AtLink state() const {
    std::error_code error;
    const auto status = fs::symlink_status(link(), error);
    if (!fs::exists(status)) return AtLink::nothing;
    if (!fs::is_symlink(status)) return AtLink::regularFile;
    const auto target = fs::read_symlink(link());
    if (target == tool()) return AtLink::ours;
    return fs::exists(target) ? AtLink::elsewhere : AtLink::dangling;
  }
  fs::path link() const { return root_ / "usr/local/bin/velmo"; }
  fs::path tool() const { return root_ / "Library/Velmo/velmo"; }
};

TEST_P(ToolLinkTest, FollowsTheTable) {
  const auto& param = GetParam();
  write(tool());
  fs::create_directories(link().parent_path());
  switch (param.before) {
    case AtLink::nothing:
      break;
    case AtLink::ours:
      fs::create_symlink(tool(), link());
      break;
    case AtLink::elsewhere:
      fs::create_symlink(outside_ / "keep" / "precious", link());
      break;
    case AtLink::dangling:
      fs::create_symlink(root_ / "gone", link());
      break;
    case AtLink::regularFile:
      write(link());
      break;
  }
  if (param.removeKey) defaults_.set("RemoveVelmoSymlink", core::PlistValue(true));
  ToolLinkMaintainer(disk_, defaults_, link(), tool(), logger_).maintainToolLink();
  EXPECT_EQ(state(), param.after);
  if (*param.line) {
    EXPECT_TRUE(loggedAnywhere(param.line)) << param.line;
  }
}

INSTANTIATE_TEST_SUITE_P(
    Cases, ToolLinkTest,
    ::testing::Values(
        LinkCase{"MissingIsCreated", AtLink::nothing, false, AtLink::ours,
                 "The velmo symlink is missing; creating now."},
        LinkCase{"MissingStaysMissing", AtLink::nothing, true, AtLink::nothing, ""},
        LinkCase{"OursStays", AtLink::ours, false, AtLink::ours, ""},
        LinkCase{"OursIsRemoved", AtLink::ours, true, AtLink::nothing,
                 "Configured to remove the velmo symlink; removing now."},
        LinkCase{"ElsewhereIsNotRemoved", AtLink::elsewhere, true, AtLink::elsewhere,
                 "does not point to Marvenith's velmo command line tool; skipping removal."},
        // The exists test follows the link, so a dangling one reads as missing.
        LinkCase{"DanglingFailsToCreate", AtLink::dangling, false, AtLink::dangling,
                 "Failed to create velmo symlink, detailed error: "},
        LinkCase{"RegularFileStays", AtLink::regularFile, true, AtLink::regularFile,
                 "Failed to remove velmo symlink, detailed error: "}),
    [](const auto& info) { return std::string(info.param.name); });

}  // namespace
}  // namespace velmo::agent::maintenance
