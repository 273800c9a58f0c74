#include "backends/linux/FileUnifiedLog.h"

#include <gtest/gtest.h>

#include <fstream>
#include <sstream>

#include <asio/io_context.hpp>

#include "backends/fake/VirtualClock.h"

namespace velmo::platform::linux {
namespace {

TEST(FileUnifiedLog, AppendsOneStampedLinePerMessageAtEveryLevelOrDropsItQuietly) {
  asio::io_context context;
  fake::VirtualClock clock(context);
  const auto path = std::filesystem::temp_directory_path() /
                    ("velmo-unified-" + std::to_string(::getpid()) + ".log");
  std::filesystem::remove(path);
  {
    std::ofstream(path) << "earlier line\n";
    FileUnifiedLog log(path, clock);
    EXPECT_TRUE(log.isEnabled(UnifiedLogType::debug));
    log.write(UnifiedLogType::debug, "com.marvenith.velmo-agent", "VelmoRunner", "first");
    clock.advance(std::chrono::milliseconds(1500));
    log.write(UnifiedLogType::error, "s", "c", "second");
  }
  std::stringstream text;
  text << std::ifstream(path).rdbuf();
  EXPECT_EQ(text.str(),
            "earlier line\n"
            "2026-03-10T14:05:09.000Z debug [com.marvenith.velmo-agent:VelmoRunner] first\n"
            "2026-03-10T14:05:10.500Z error [s:c] second\n");
  std::filesystem::remove(path);
  FileUnifiedLog("/nonexistent-dir/velmo.log", clock).write(UnifiedLogType::info, "s", "c", "lost");
}

}  // namespace
}  // namespace velmo::platform::linux
