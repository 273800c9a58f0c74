#include "core/CustomLogger.h"

#include <gtest/gtest.h>

#include <asio/io_context.hpp>

#include "platform/fake/VirtualClock.h"
#include "tests/support/LogCapture.h"

namespace velmo::core {
namespace {

using platform::UnifiedLogType;
using testing::LogCapture;

struct LineCase {
  LogLevel level;
  const char* expectedLine;
  UnifiedLogType unifiedType;
};

void PrintTo(const LineCase& c, std::ostream* os) { *os << rawValue(c.level); }

class CustomLoggerLine : public ::testing::TestWithParam<LineCase> {
 protected:
  asio::io_context context_;
  platform::fake::VirtualClock clock_{context_};  // 2026-03-10T14:05:09Z
};

TEST_P(CustomLoggerLine, WritesColourStampMarkerAndReset) {
  LogCapture capture(&clock_);
  CustomLogger logger("com.example", "Tests", /*printDebugToStdout=*/true);
  logger.log([] { return std::string("hello"); }, GetParam().level);

  EXPECT_EQ(capture.standardOutput(), GetParam().expectedLine);
  const auto entries = capture.unified().entries();
  ASSERT_EQ(entries.size(), 1u);
  EXPECT_EQ(entries[0].type, GetParam().unifiedType);
  EXPECT_EQ(entries[0].subsystem, "com.example");
  EXPECT_EQ(entries[0].category, "Tests");
  EXPECT_EQ(entries[0].message, "hello");
}

INSTANTIATE_TEST_SUITE_P(
    Levels, CustomLoggerLine,
    ::testing::Values(LineCase{LogLevel::debug, "\x1b[37m2026-03-10T14:05:09Z  hello\x1b[0m\n",
                               UnifiedLogType::debug},
                      LineCase{LogLevel::info, "\x1b[0m2026-03-10T14:05:09Z  hello\x1b[0m\n",
                               UnifiedLogType::info},
                      LineCase{LogLevel::warning,
                               "\x1b[33m2026-03-10T14:05:09Z  WARNING: hello\x1b[0m\n",
                               UnifiedLogType::error},
                      LineCase{LogLevel::error,
                               "\x1b[31m2026-03-10T14:05:09Z  ERROR: hello\x1b[0m\n",
                               UnifiedLogType::error}));

TEST(CustomLogger, DebugStaysOffStdoutAndIsBuiltOnlyForAUnifiedLogThatTakesIt) {
  int evaluations = 0;
  const auto message = [&] {
    ++evaluations;
    return std::string("quiet");
  };
  {
    LogCapture capture(nullptr, {UnifiedLogType::info, UnifiedLogType::error});
    CustomLogger("com.example", "Tests").debug(message);
    EXPECT_EQ(evaluations, 0);
    EXPECT_EQ(capture.standardOutput(), "");
    EXPECT_TRUE(capture.unified().entries().empty());
  }
  LogCapture capture;
  CustomLogger("com.example", "Tests").debug(message);
  EXPECT_EQ(evaluations, 1);
  EXPECT_EQ(capture.standardOutput(), "");
  EXPECT_EQ(capture.debugs(), std::vector<std::string>{"quiet"});
}

TEST(CustomLogger, KeepsNewlinesAndNulsOfTheMessage) {
  LogCapture capture;
  CustomLogger("com.example", "Tests").info(std::string("one\ntwo\0three", 13));
  const std::string out = capture.standardOutput();
  EXPECT_NE(out.find("  one\ntwo"), std::string::npos);
  EXPECT_NE(out.find(std::string("two\0three\x1b[0m\n", 14)), std::string::npos);
}

}  // namespace
}  // namespace velmo::core
