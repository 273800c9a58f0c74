#include "backends/linux/ProcessConnectorTerminations.h"

#include <gtest/gtest.h>
#include <sys/wait.h>
#include <unistd.h>

#include <filesystem>

#include "backends/linux/SystemClock.h"
#include "tests/support/BusTesting.h"

namespace velmo::platform::linux {
namespace {

namespace fs = std::filesystem;
using testing::runUntil;

class ProcessConnectorTerminationsTest : public ::testing::Test {
 protected:
  void SetUp() override {
    bundle_ = fs::temp_directory_path() / ("velmo-terminations-" + std::to_string(::getpid())) /
              "Quick Thing.app";
    fs::create_directories(bundle_ / "Contents/MacOS");
    fs::copy_file("/bin/sleep", bundle_ / "Contents/MacOS/Quick Thing",
                  fs::copy_options::overwrite_existing);
    terminations_.start();
    terminations_.addObserver([&](const std::optional<fs::path>& bundle) {
      if (bundle) seen_.push_back(*bundle);
    });
  }
  void TearDown() override { fs::remove_all(bundle_.parent_path()); }

  // Starts the application's executable for `seconds`; the loop goes on
  // meanwhile, as the agent's does. Reaped at the end of the test.
  void runApplication(const char* seconds) {
    const std::string program = (bundle_ / "Contents/MacOS/Quick Thing").string();
    const pid_t pid = ::fork();
    if (pid == 0) {
      ::execl(program.c_str(), program.c_str(), seconds, nullptr);
      ::_exit(127);
    }
    children_.push_back(pid);
  }
  ~ProcessConnectorTerminationsTest() override {
    for (const pid_t pid : children_) ::waitpid(pid, nullptr, 0);
  }

  std::vector<pid_t> children_;
  fs::path bundle_;
  asio::io_context context_;
  SystemClock clock_;
  ProcessConnectorTerminations terminations_{context_.get_executor(), clock_};
  std::vector<fs::path> seen_;
};

TEST_F(ProcessConnectorTerminationsTest, ATenMillisecondApplicationIsSeenToEndOtherProgramsNot) {
  const pid_t pid = ::fork();
  if (pid == 0) {
    ::execl("/bin/sleep", "sleep", "0.01", nullptr);
    ::_exit(127);
  }
  children_.push_back(pid);
  runApplication("0.01");  // Marks the end of what there is to see.
  ASSERT_TRUE(runUntil(
      context_, [&] { return !seen_.empty(); }, std::chrono::seconds(5)))
      << (terminations_.usesConnector() ? "connector" : "/proc scan");
  context_.run_for(std::chrono::milliseconds(100));
  EXPECT_EQ(seen_, std::vector<fs::path>{bundle_});
}

}  // namespace
}  // namespace velmo::platform::linux
