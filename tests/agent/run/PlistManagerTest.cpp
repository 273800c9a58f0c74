#include "agent/run/PlistManager.h"

#include <gtest/gtest.h>
#include <plist/plist.h>
#include <signal.h>
#include <spawn.h>
#include <sys/wait.h>

#include <fstream>
#include <random>
#include <thread>

#include "backends/linux/PosixFileManager.h"
#include "core/values/PropertyList.h"
#include "tests/support/TestPrograms.h"

extern char** environ;

namespace velmo::agent::run {
namespace {

class PlistManagerTest : public ::testing::Test {
 protected:
  void SetUp() override {
    char pattern[] = "/tmp/velmo-plist-XXXXXX";
    directory_ = ::mkdtemp(pattern);
    file_ = directory_ / "com.marvenith.velmo-agent.plist";
  }
  void TearDown() override { std::filesystem::remove_all(directory_); }

  void writeRaw(const std::string& bytes) { std::ofstream(file_, std::ios::binary) << bytes; }
  std::string readRaw() const { return files_.readFile(file_).valueOr(""); }
  core::PlistDictionary onDisk() const {
    auto root = core::PropertyList::parse(readRaw());
    return root && root->is<core::PlistDictionary>() ? *root->getIf<core::PlistDictionary>()
                                                     : core::PlistDictionary{};
  }

  std::filesystem::path directory_;
  std::filesystem::path file_;
  platform::linux::PosixFileManager files_;
};

TEST_F(PlistManagerTest, AWriterKilledAtAnyMomentLeavesAParseableFile) {
  // A large unknown key makes each write long enough to be caught in the middle.
  writeRaw(*core::PropertyList::xml(
      core::PlistDictionary{{"Padding", std::string(256 * 1024, 'x')}, {"UpdateTaskRunCount", 0}}));
  std::mt19937 random(20261123);
  const std::string writer = testing::testProgram("velmo-plist-writer").string();
  std::string target = file_.string();
  for (int round = 0; round < 200; ++round) {
    std::vector<char*> argv{const_cast<char*>(writer.c_str()), target.data(), nullptr};
    pid_t pid = 0;
    ASSERT_EQ(::posix_spawn(&pid, writer.c_str(), nullptr, nullptr, argv.data(), environ), 0);
    std::this_thread::sleep_for(std::chrono::microseconds(random() % 20000));
    ::kill(pid, SIGKILL);
    ::waitpid(pid, nullptr, 0);
    const auto dictionary = onDisk();
    ASSERT_EQ(dictionary.count("UpdateTaskRunCount"), 1u) << "round " << round;
    ASSERT_EQ(dictionary.count("Padding"), 1u) << "round " << round;
  }
}

}  // namespace
}  // namespace velmo::agent::run
