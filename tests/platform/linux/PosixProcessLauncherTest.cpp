#include "platform/linux/PosixProcessLauncher.h"

#include <gtest/gtest.h>
#include <signal.h>

#include <cstdlib>
#include <fstream>

#include <asio/co_spawn.hpp>
#include <asio/detached.hpp>
#include <asio/io_context.hpp>

#include "tests/support/TestPrograms.h"

namespace velmo::platform::linux {
namespace {

std::filesystem::path testTool() { return testing::testProgram("velmo-test-tool"); }

std::unique_ptr<ChildProcess> launchOrFail(PosixProcessLauncher& launcher,
                                           const std::filesystem::path& program,
                                           std::vector<std::string> arguments) {
  auto result = launcher.launch(program, arguments);
  if (auto* failure = std::get_if<LaunchFailure>(&result)) {
    ADD_FAILURE() << failure->description;
    return nullptr;
  }
  return std::move(std::get<std::unique_ptr<ChildProcess>>(result));
}

// Waits for the child on an event loop of its own, bounded.
int waitOnLoop(ChildProcess& child) {
  asio::io_context context;
  bool done = false;
  asio::co_spawn(
      context,
      [&]() -> asio::awaitable<void> {
        co_await child.waitUntilExit();
        done = true;
      },
      asio::detached);
  context.run_for(std::chrono::seconds(20));
  EXPECT_TRUE(done);
  return child.terminationStatus();
}

TEST(PosixProcessLauncher, ReportsTheBareSignalNumberOfAKilledChild) {
  PosixProcessLauncher launcher;
  auto child = launchOrFail(launcher, testTool(), {"--sleep", "30"});
  ASSERT_TRUE(child);
  EXPECT_TRUE(child->isRunning());
  child->sendSignal(SIGTERM);
  EXPECT_EQ(waitOnLoop(*child), SIGTERM);
}

class LaunchFailures : public ::testing::TestWithParam<std::string> {};

TEST_P(LaunchFailures, AreReportedWithADescription) {
  const auto dir =
      std::filesystem::temp_directory_path() / ("velmo-launch-" + std::to_string(::getpid()));
  std::filesystem::create_directories(dir);
  const auto notExecutable = dir / "plain-file";
  std::ofstream(notExecutable) << "#!/bin/sh\nexit 0\n";
  const std::map<std::string, std::filesystem::path> programs{
      {"Missing", dir / "missing"}, {"NotExecutable", notExecutable}, {"Directory", dir}};

  PosixProcessLauncher launcher;
  auto result = launcher.launch(programs.at(GetParam()), {});
  ASSERT_TRUE(std::holds_alternative<LaunchFailure>(result));
  EXPECT_NE(std::get<LaunchFailure>(result).description.find(programs.at(GetParam()).string()),
            std::string::npos);
  std::filesystem::remove_all(dir);
}

INSTANTIATE_TEST_SUITE_P(Kinds, LaunchFailures,
                         ::testing::Values("Missing", "NotExecutable", "Directory"),
                         [](const auto& info) { return info.param; });

}  // namespace
}  // namespace velmo::platform::linux
