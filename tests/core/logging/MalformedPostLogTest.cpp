#include "core/logging/MalformedPostLog.h"

#include <gtest/gtest.h>

#include <asio/io_context.hpp>

#include "platform/fake/VirtualClock.h"
#include "tests/support/LogCapture.h"

namespace velmo::core {
namespace {

class MalformedPostLogTest : public ::testing::Test {
 protected:
  void report(std::string_view name, std::uint64_t post) {
    log_.error(logger_, name, post, "bad " + std::string(name) + " " + std::to_string(post));
  }

  asio::io_context context_;
  platform::fake::VirtualClock clock_{context_};
  testing::LogCapture capture_{&clock_};
  CustomLogger logger_{"Observer"};
  MalformedPostLog log_{clock_, context_.get_executor()};
};

// Ten lines a minute per name, then one summary; each name counts alone, and
// a post that several observers report is one line.
TEST_F(MalformedPostLogTest, TenLinesAMinutePerNameThenOneSummaryAndOneLinePerPost) {
  for (std::uint64_t post = 1; post <= 25; ++post) {
    report("a", post);
    report("a", post);  // A second observer of the same post.
  }
  report("b", 100);
  report("c", 0);
  report("c", 0);  // Unnumbered posts are never taken for one another.
  EXPECT_EQ(capture_.errors().size(), 13u);
  EXPECT_EQ(capture_.errors()[9], "bad a 10");
  clock_.advance(std::chrono::seconds(59));
  EXPECT_EQ(capture_.standardOutput().find("Suppressed"), std::string::npos);
  clock_.advance(std::chrono::seconds(1));
  EXPECT_NE(
      capture_.standardOutput().find("Suppressed 15 malformed a notifications in the last minute."),
      std::string::npos);
  report("a", 26);
  EXPECT_EQ(capture_.errors().back(), "bad a 26");
}

}  // namespace
}  // namespace velmo::core
