#include "backends/linux/PosixFileManager.h"

#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <fstream>

#include <gtest/gtest.h>

namespace velmo::platform::linux {
namespace {

namespace fs = std::filesystem;

constexpr uid_t kNobody = 65534;

// Each test works in a fresh folder of root's; `target/job/log.txt` is what a
// followed link leads to.
class PosixFileManagerTest : public ::testing::Test {
 protected:
  void SetUp() override {
    if (::geteuid() != 0) GTEST_SKIP() << "needs root to give files away";
    char pattern[] = "/tmp/velmo-files-XXXXXX";
    base_ = ::mkdtemp(pattern);
    fs::create_directories(base_ / "target/job");
    std::ofstream(target()) << "one\ntwo\n";
  }
  void TearDown() override {
    if (!base_.empty()) fs::remove_all(base_);
  }

  fs::path target() const { return base_ / "target/job/log.txt"; }
  // A link at `at` (below the test's folder) made by `owner`, in a folder of
  // `holderOwner` with `holderMode`.
  void link(const std::string& at, const std::string& destination, uid_t owner = 0,
            uid_t holderOwner = 0, mode_t holderMode = 0755) const {
    const fs::path path = base_ / at;
    fs::create_directories(path.parent_path());
    fs::create_symlink(destination, path);
    ASSERT_EQ(::lchown(path.c_str(), owner, owner), 0);
    ASSERT_EQ(::chown(path.parent_path().c_str(), holderOwner, 0), 0);
    ASSERT_EQ(::chmod(path.parent_path().c_str(), holderMode), 0);
  }

  fs::path base_;
  PosixFileManager files_;
};

struct LinkCase {
  const char* name;
  const char* link;
  const char* destination;  // As written; a leading "/" stands for the test's folder.
  const char* fixedFolder;
  const char* folder;  // Holds log.txt when the link is followed.
  uid_t linkOwner;
  uid_t holderOwner;
  mode_t holderMode;
  bool followed;
  // The link leads to relay/job, a link of root's in a folder anyone may write.
  bool viaUntrustedRelay = false;
};
void PrintTo(const LinkCase& c, std::ostream* os) { *os << c.name; }

class LinkTrustTest : public PosixFileManagerTest,
                      public ::testing::WithParamInterface<LinkCase> {};

// Listing, reading and removing all walk alike: either each reaches the
// target through the link, or each is refused and the target stays.
TEST_P(LinkTrustTest, FollowsOnlyRootsLinksOnTheWayToTheFixedFolder) {
  const auto& param = GetParam();
  std::string destination = param.destination;
  if (destination.starts_with("/")) destination = (base_ / destination.substr(1)).string();
  if (param.viaUntrustedRelay) link("relay/job", "../target/job", 0, 0, 01777);
  link(param.link, destination, param.linkOwner, param.holderOwner, param.holderMode);
  const fs::path fixed = base_ / param.fixedFolder;
  const fs::path folder = base_ / param.folder;

  const auto listing = files_.contentsOfDirectory(folder, fixed, false);
  const auto tail = files_.readFileTail(folder / "log.txt", fixed, 4);
  const auto removal = files_.removeItem(folder / "log.txt", fixed);

  if (param.followed) {
    ASSERT_TRUE(listing.ok());
    ASSERT_EQ(listing.value().size(), 1u);
    EXPECT_EQ(listing.value().front().path, folder / "log.txt");
    ASSERT_TRUE(tail.ok());
    EXPECT_EQ(tail.value().size, 8u);
    EXPECT_EQ(tail.value().bytes.view(), "two\n");
    EXPECT_TRUE(removal.ok());
    EXPECT_FALSE(fs::exists(target()));
  } else {
    ASSERT_TRUE(listing.error());
    EXPECT_EQ(listing.error()->code, ELOOP);
    ASSERT_TRUE(tail.error());
    EXPECT_EQ(tail.error()->code, ELOOP);
    ASSERT_TRUE(removal.error());
    EXPECT_EQ(removal.error()->code, ELOOP);
    EXPECT_TRUE(fs::exists(target()));
  }
}

// A link's own mode can't be set on Linux (it is always 0777), so the mode
// of the folder holding it is the one that counts.
INSTANTIATE_TEST_SUITE_P(
    Cases, LinkTrustTest,
    ::testing::Values(LinkCase{"RootsLinkIsTheFixedFolder", "var/job", "../target/job", "var/job",
                               "var/job", 0, 0, 0755, true},
                      LinkCase{"RootsAbsoluteLinkOnTheWay", "var/log", "/target", "var/log/job",
                               "var/log/job", 0, 0, 0755, true},
                      LinkCase{"LinkOfAnotherAccount", "var/job", "../target/job", "var/job",
                               "var/job", kNobody, 0, 0755, false},
                      LinkCase{"InAFolderOfAnotherAccount", "var/job", "../target/job", "var/job",
                               "var/job", 0, kNobody, 0755, false},
                      LinkCase{"InAFolderTheGroupMayWrite", "var/job", "../target/job", "var/job",
                               "var/job", 0, 0, 0775, false},
                      LinkCase{"InAFolderOthersMayWriteEvenIfSticky", "var/job", "../target/job",
                               "var/job", "var/job", 0, 0, 01777, false},
                      LinkCase{"RootsLinkBelowTheFixedFolder", "var/job", "../target/job", "var",
                               "var/job", 0, 0, 0755, false},
                      // A trusted link leads only as far as the next link allows.
                      LinkCase{"TrustedLinkToAnUntrustedOne", "var/job", "../relay/job", "var/job",
                               "var/job", 0, 0, 0755, false, true}),
    [](const auto& info) { return std::string(info.param.name); });

}  // namespace
}  // namespace velmo::platform::linux
