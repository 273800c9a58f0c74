// The runner against real child processes and the real clock: bounded waits.
#include <fcntl.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <string>

#include <asio/co_spawn.hpp>
#include <asio/detached.hpp>
#include <asio/io_context.hpp>
#include <asio/steady_timer.hpp>

#include "agent/runner/VelmoRunner.h"
#include "backends/linux/PosixProcessLauncher.h"
#include "backends/linux/SystemClock.h"
#include "tests/support/LogCapture.h"
#include "tests/support/TestPrograms.h"

namespace velmo::agent::run {
namespace {

using std::chrono::steady_clock;

class VelmoRunnerProcessTest : public ::testing::Test {
 protected:
  struct Outcome {
    int result;
    steady_clock::duration elapsed;
    int loopTicks;
  };

  Outcome run(std::vector<std::string> arguments, std::optional<double> timeout) {
    return run(runner_, std::move(arguments), timeout);
  }
  Outcome run(VelmoRunner& runner, std::vector<std::string> arguments,
              std::optional<double> timeout) {
    asio::io_context context;
    std::optional<int> result;
    std::optional<core::TimeInterval> limit;
    if (timeout) limit = core::TimeInterval(*timeout);
    const auto start = steady_clock::now();
    asio::co_spawn(
        context, [&]() -> asio::awaitable<void> { result = co_await runner.run(arguments, limit); },
        asio::detached);
    // A ticker on the same loop: the run must never block it.
    int ticks = 0;
    asio::steady_timer ticker(context);
    std::function<void()> tick = [&] {
      ticker.expires_after(std::chrono::milliseconds(100));
      ticker.async_wait([&](std::error_code error) {
        if (error || result) return;
        ++ticks;
        tick();
      });
    };
    tick();
    context.run_for(std::chrono::seconds(30));
    EXPECT_TRUE(result.has_value());
    return {result.value_or(-999), steady_clock::now() - start, ticks};
  }

  platform::linux::PosixProcessLauncher launcher_{testing::testProgram("").parent_path()};
  platform::linux::SystemClock clock_;
  VelmoRunner runner_{launcher_, clock_, testing::testProgram("velmo-test-tool")};
};

TEST_F(VelmoRunnerProcessTest, ATermIgnoringToolIsKilledAndTheResultIs124) {
  testing::LogCapture capture;
  const Outcome outcome = run({"--sleep", "60", "--ignore-term"}, 1.0);
  EXPECT_EQ(outcome.result, VelmoRunner::kTimedOut);
  // 1 s limit, 5 s grace after SIGTERM, then SIGKILL takes effect at once.
  EXPECT_GE(outcome.elapsed, std::chrono::milliseconds(5900));
  EXPECT_LE(outcome.elapsed, std::chrono::milliseconds(8500));
  ASSERT_EQ(capture.errors().size(), 2u);
  EXPECT_NE(capture.errors()[0].find(") timed out after 1 seconds; sending SIGTERM."),
            std::string::npos);
  EXPECT_NE(capture.errors()[1].find(") did not exit after SIGTERM; sending SIGKILL."),
            std::string::npos);
}

// A tool's child that even ignores SIGTERM is gone once the run returns:
// signals go to the tool's process group.
TEST_F(VelmoRunnerProcessTest, ATimedOutToolsChildIsGoneAfterTheGrace) {
  testing::LogCapture capture;
  char path[] = "/tmp/velmo-child-XXXXXX";
  const int file = ::mkstemp(path);
  ASSERT_GE(file, 0);
  ::close(file);
  EXPECT_EQ(run({"--child", path, "--sleep", "60"}, 0.5).result, VelmoRunner::kTimedOut);
  std::FILE* pidFile = std::fopen(path, "r");
  ASSERT_NE(pidFile, nullptr);
  int child = 0;
  ASSERT_EQ(std::fscanf(pidFile, "%d", &child), 1);
  std::fclose(pidFile);
  ::unlink(path);
  // Dead: gone, or a zombie where nothing reaps orphans.
  const auto alive = [child] {
    std::FILE* stat = std::fopen(("/proc/" + std::to_string(child) + "/stat").c_str(), "r");
    if (!stat) return false;
    char state = 0;
    const int read = std::fscanf(stat, "%*d (%*[^)]) %c", &state);
    std::fclose(stat);
    return read == 1 && state != 'Z';
  };
  EXPECT_FALSE(alive());
}

TEST_F(VelmoRunnerProcessTest, NothingTheToolPrintsReachesTheAgent) {
  // Point the agent's own descriptors 1 and 2 at a file for the length of the run.
  char path[] = "/tmp/velmo-runner-out-XXXXXX";
  const int file = ::mkstemp(path);
  ASSERT_GE(file, 0);
  std::fflush(stdout);
  std::fflush(stderr);
  const int savedOut = ::dup(STDOUT_FILENO);
  const int savedErr = ::dup(STDERR_FILENO);
  ::dup2(file, STDOUT_FILENO);
  ::dup2(file, STDERR_FILENO);
  const Outcome outcome = run({"--chatter", "--exit", "0"}, 30.0);
  ::dup2(savedOut, STDOUT_FILENO);
  ::dup2(savedErr, STDERR_FILENO);
  ::close(savedOut);
  ::close(savedErr);
  EXPECT_EQ(outcome.result, 0);
  EXPECT_EQ(::lseek(file, 0, SEEK_END), 0);
  ::close(file);
  ::unlink(path);
}

}  // namespace
}  // namespace velmo::agent::run
