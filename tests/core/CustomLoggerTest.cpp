#include "core/CustomLogger.h"

#include <gtest/gtest.h>

#include <asio/io_context.hpp>

#include "core/Bundle.h"
#include "core/NullLogger.h"
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

TEST(CustomLogger, DebugStaysOffStdoutAndIsNotBuiltWhenNoSinkWantsIt) {
  LogCapture capture(nullptr, {UnifiedLogType::info, UnifiedLogType::error});
  int evaluations = 0;
  CustomLogger logger("com.example", "Tests");
  logger.debug([&] {
    ++evaluations;
    return std::string("quiet");
  });
  EXPECT_EQ(evaluations, 0);
  EXPECT_EQ(capture.standardOutput(), "");
  EXPECT_TRUE(capture.unified().entries().empty());
}

TEST(CustomLogger, EvaluatesOncePerSinkThatTakesTheLine) {
  LogCapture capture;
  int evaluations = 0;
  CustomLogger logger("com.example", "Tests");
  logger.info([&] {
    ++evaluations;
    return std::string("twice");
  });
  EXPECT_EQ(evaluations, 2);
  logger.debug([&] {
    ++evaluations;
    return std::string("unified only");
  });
  EXPECT_EQ(evaluations, 3);
  EXPECT_EQ(capture.debugs(), std::vector<std::string>{"unified only"});
}

TEST(CustomLogger, KeepsNewlinesAndNulsOfTheMessage) {
  LogCapture capture;
  CustomLogger("com.example", "Tests").info(std::string("one\ntwo\0three", 13));
  const std::string out = capture.standardOutput();
  EXPECT_NE(out.find("  one\ntwo"), std::string::npos);
  EXPECT_NE(out.find(std::string("two\0three\x1b[0m\n", 14)), std::string::npos);
}

TEST(CustomLogger, SubsystemIsTheBundleIdentifierOrTheDefault) {
  LogCapture capture;
  const Bundle saved = Bundle::main();
  Bundle::setMain({});
  EXPECT_EQ(CustomLogger("RunGate").subsystem(), "com.marvenith.velmo");
  EXPECT_EQ(CustomLogger::withDefaultSubsystem("RunGate", "com.example.other").subsystem(),
            "com.example.other");
  Bundle::setMain({"com.marvenith.velmo-agent", std::nullopt, std::nullopt});
  EXPECT_EQ(CustomLogger("RunGate").subsystem(), "com.marvenith.velmo-agent");
  Bundle::setMain(saved);
}

TEST(CustomLogger, NullLoggerNeverBuildsTheMessage) {
  bool evaluated = false;
  NullLogger().log(
      [&] {
        evaluated = true;
        return std::string();
      },
      LogLevel::error);
  EXPECT_FALSE(evaluated);
}

TEST(LogLevel, RoundTripsRawValuesAndRejectsOthers) {
  for (LogLevel level : {LogLevel::debug, LogLevel::info, LogLevel::warning, LogLevel::error}) {
    EXPECT_EQ(logLevelFromRawValue(rawValue(level)), level);
  }
  EXPECT_EQ(logLevelFromRawValue("Info"), std::nullopt);
  EXPECT_EQ(logLevelFromRawValue(""), std::nullopt);
  EXPECT_LT(LogLevel::info, LogLevel::warning);
}

TEST(Bundle, VersionStringFallsBackToUnknown) {
  EXPECT_EQ((Bundle{std::nullopt, std::nullopt, std::nullopt}).versionString(), "Unknown.Unknown");
  EXPECT_EQ((Bundle{"id", "2.4", "318"}).versionString(), "2.4.318");
}

}  // namespace
}  // namespace velmo::core
