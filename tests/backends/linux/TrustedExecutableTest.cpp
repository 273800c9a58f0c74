#include "backends/linux/TrustedExecutable.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <filesystem>
#include <fstream>
#include <functional>

namespace velmo::platform::linux {
namespace {

namespace fs = std::filesystem;
constexpr uid_t kNobody = 65534;

void writeProgram(const fs::path& path, const std::string& text) {
  std::ofstream(path) << text;
  ::chmod(path.c_str(), 0755);
}

// A root prefix with the program at bin/tools/velmo, every part root's
// alone; each case changes one thing before the program is opened.
struct TrustCase {
  const char* name;
  std::function<void(const fs::path& root)> change;
  std::string refusal;  // Empty: it opens. "-": a plain failure, not a refusal.
};
void PrintTo(const TrustCase& c, std::ostream* os) { *os << c.name; }

class TrustedExecutableTest : public ::testing::TestWithParam<TrustCase> {
 protected:
  void SetUp() override {
    if (::geteuid() != 0) GTEST_SKIP() << "needs root to give files away";
    char folder[] = "/tmp/velmo-trust-XXXXXX";
    ASSERT_NE(::mkdtemp(folder), nullptr);
    root_ = folder;
    fs::create_directories(root_ / "bin/tools");
    fs::create_directories(root_ / "home");
    for (const char* path : {"bin", "bin/tools", "home"}) ::chmod((root_ / path).c_str(), 0755);
    writeProgram(root_ / "bin/tools/velmo", "root's tool");
  }
  void TearDown() override {
    if (!root_.empty()) fs::remove_all(root_);
  }
  fs::path root_;
};

TEST_P(TrustedExecutableTest, OpensOnlyWhatNoOtherAccountCanChange) {
  const TrustCase& c = GetParam();
  if (c.change) c.change(root_);
  const auto opened = TrustedExecutable::open(root_ / "bin/tools/velmo", root_);
  if (c.refusal.empty()) {
    ASSERT_TRUE(std::holds_alternative<TrustedExecutable::Opened>(opened))
        << std::get<TrustedExecutable::Failure>(opened).reason;
    ::close(std::get<TrustedExecutable::Opened>(opened).descriptor);
    return;
  }
  ASSERT_TRUE(std::holds_alternative<TrustedExecutable::Failure>(opened));
  const auto& failure = std::get<TrustedExecutable::Failure>(opened);
  EXPECT_EQ(failure.refused, c.refusal != "-");
  if (c.refusal != "-") {
    EXPECT_NE(failure.reason.find(c.refusal), std::string::npos) << failure.reason;
  }
}

INSTANTIATE_TEST_SUITE_P(
    Cases, TrustedExecutableTest,
    ::testing::Values(TrustCase{"RootsAlone", nullptr, ""},
                      TrustCase{"AFolderOfAnotherAccount",
                                [](const fs::path& r) {
                                  EXPECT_EQ(::chown((r / "bin").c_str(), kNobody, 0), 0);
                                },
                                "/bin is owned by uid 65534, not root"},
                      TrustCase{"AGroupWritableFolder",
                                [](const fs::path& r) { ::chmod((r / "bin/tools").c_str(), 0775); },
                                "/bin/tools is writable by its group or others (mode 0775)"},
                      TrustCase{"RootsLinkToRootsFile",
                                [](const fs::path& r) {
                                  fs::rename(r / "bin/tools/velmo", r / "bin/velmo-real");
                                  fs::create_symlink("../velmo-real", r / "bin/tools/velmo");
                                },
                                ""},
                      TrustCase{"RootsLinkIntoAUsersFolder",
                                [](const fs::path& r) {
                                  writeProgram(r / "home/velmo", "a user's program");
                                  EXPECT_EQ(::chown((r / "home").c_str(), kNobody, 0), 0);
                                  fs::remove(r / "bin/tools/velmo");
                                  fs::create_symlink("../../home/velmo", r / "bin/tools/velmo");
                                },
                                "/home is owned by uid 65534"},
                      TrustCase{"ALinkOfAnotherAccount",
                                [](const fs::path& r) {
                                  fs::rename(r / "bin/tools/velmo", r / "bin/velmo-real");
                                  fs::create_symlink("../velmo-real", r / "bin/tools/velmo");
                                  EXPECT_EQ(::lchown((r / "bin/tools/velmo").c_str(), kNobody, 0),
                                            0);
                                },
                                "the link"},
                      TrustCase{"AMissingProgram",
                                [](const fs::path& r) { fs::remove(r / "bin/tools/velmo"); }, "-"}),
    [](const ::testing::TestParamInfo<TrustCase>& info) { return info.param.name; });

// What is started is what was checked: a folder swapped afterwards changes
// nothing the descriptor reads.
TEST_F(TrustedExecutableTest, AFolderSwappedAfterTheCheckChangesNothing) {
  const auto opened = TrustedExecutable::open(root_ / "bin/tools/velmo", root_);
  ASSERT_TRUE(std::holds_alternative<TrustedExecutable::Opened>(opened));
  const int descriptor = std::get<TrustedExecutable::Opened>(opened).descriptor;
  fs::rename(root_ / "bin/tools", root_ / "bin/tools.old");
  fs::create_directories(root_ / "bin/tools");
  writeProgram(root_ / "bin/tools/velmo", "planted");
  std::ifstream through("/proc/self/fd/" + std::to_string(descriptor));
  std::string text((std::istreambuf_iterator<char>(through)), std::istreambuf_iterator<char>());
  EXPECT_EQ(text, "root's tool");
  ::close(descriptor);
}

}  // namespace
}  // namespace velmo::platform::linux
