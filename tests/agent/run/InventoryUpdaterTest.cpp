// The inventory update against real processes and the real clock.
#include "agent/run/InventoryUpdater.h"

#include <gtest/gtest.h>
#include <unistd.h>

#include <fstream>

#include <asio/co_spawn.hpp>
#include <asio/io_context.hpp>

#include "backends/linux/PosixProcessLauncher.h"
#include "backends/linux/SystemClock.h"
#include "tests/support/TestPrograms.h"

namespace velmo::agent::run {
namespace {

class InventoryUpdaterTest : public ::testing::Test {
 protected:
  // The test tool stands in for the inventory command: "recon" is ignored
  // by it, and `options` tell it what to do.
  InventoryUpdater::Result run(const std::filesystem::path& program, double timeout,
                               std::vector<std::string> options = {}) {
    // A folder of root's alone: root starts no program from /tmp itself.
    char folder[] = "/tmp/velmo-recon-XXXXXX";
    if (!::mkdtemp(folder)) return {-999, "mkdtemp"};
    const std::string wrapper = std::string(folder) + "/jamf";
    {
      std::ofstream script(wrapper);
      script << "#!/bin/sh\nexec " << program.string();
      for (const auto& option : options) script << " " << option;
      script << "\n";
    }
    std::filesystem::permissions(wrapper, std::filesystem::perms::owner_all);
    const bool wrapped = !options.empty();
    platform::linux::PosixProcessLauncher launcher(wrapped ? folder : program.parent_path());
    InventoryUpdater updater(launcher, clock_, wrapped ? std::filesystem::path(wrapper) : program);
    asio::io_context context;
    std::optional<InventoryUpdater::Result> result;
    asio::co_spawn(context, updater.runRecon(core::TimeInterval(timeout)),
                   [&](std::exception_ptr, InventoryUpdater::Result value) { result = value; });
    context.run_for(std::chrono::seconds(30));
    std::filesystem::remove_all(folder);
    EXPECT_TRUE(result.has_value());
    return result.value_or(InventoryUpdater::Result{-999, ""});
  }

  platform::linux::SystemClock clock_;
};

TEST_F(InventoryUpdaterTest, AMegabyteOfStandardErrorComesBackWhole) {
  const auto result = run(testing::testProgram("velmo-test-tool"), 60,
                          {"--stderr-bytes", "1048576", "--exit", "2"});
  EXPECT_EQ(result.status, 2);
  EXPECT_EQ(result.text.size(), 1048576u);
  EXPECT_EQ(result.text.substr(0, 4), "eeee");
}

}  // namespace
}  // namespace velmo::agent::run
