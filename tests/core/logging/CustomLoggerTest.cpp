#include "core/logging/CustomLogger.h"

#include <gtest/gtest.h>

#include <asio/io_context.hpp>

#include "backends/fake/VirtualClock.h"
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

// What other accounts post reaches messages; each stays one inert line in every sink.
struct EscapeCase {
  const char* name;
  std::string message;
  const char* shown;
};

void PrintTo(const EscapeCase& c, std::ostream* os) { *os << c.name; }

class CustomLoggerEscapes : public ::testing::TestWithParam<EscapeCase> {};

TEST_P(CustomLoggerEscapes, ControlCharactersInEverySink) {
  LogCapture capture;
  CustomLogger("com.example", "Tests").info(GetParam().message);
  EXPECT_EQ(capture.standardOutput(), std::string("\x1b[0m") +
                                          capture.standardOutput().substr(4, 22) +
                                          GetParam().shown + "\x1b[0m\n");
  ASSERT_EQ(capture.unified().entries().size(), 1u);
  EXPECT_EQ(capture.unified().entries()[0].message, GetParam().shown);
}

INSTANTIATE_TEST_SUITE_P(
    Table, CustomLoggerEscapes,
    ::testing::Values(
        EscapeCase{"ForgedLine", "id\n2026-01-01T00:00:00Z  Truncated 0 bytes",
                   "id\\n2026-01-01T00:00:00Z  Truncated 0 bytes"},
        EscapeCase{"NulTabReturn", std::string("a\0b\tc\r", 6), "a\\x00b\\tc\\r"},
        EscapeCase{"EscapeAndDel", "\x1b[2Jred\x7f", "\\x1b[2Jred\\x7f"},
        EscapeCase{"C1AndBrokenUtf8", "csi \xc2\x9b bad \xff\xc3", "csi \\u009b bad \\xff\\xc3"},
        EscapeCase{"PrintableUnicodeStays", "grüße ✓ \xe2\x80\xa8", "grüße ✓ \xe2\x80\xa8"}),
    [](const auto& info) { return std::string(info.param.name); });

}  // namespace
}  // namespace velmo::core
