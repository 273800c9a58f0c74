#include "core/logging/PostLog.h"

#include <gtest/gtest.h>

#include <asio/io_context.hpp>

#include "backends/fake/VirtualClock.h"
#include "tests/support/LogCapture.h"

namespace velmo::core {
namespace {

class PostLogTest : public ::testing::Test {
 protected:
  static platform::DistributedNotification post(std::string name, std::uint64_t number,
                                                std::uint32_t uid = 501) {
    platform::DistributedNotification made;
    made.name = std::move(name);
    made.postNumber = number;
    made.senderUid = uid;
    return made;
  }
  void report(std::string_view name, std::uint64_t number, std::uint32_t uid = 501) {
    log_.malformed(logger_, post(std::string(name), number, uid),
                   "bad " + std::string(name) + " " + std::to_string(number));
  }
  asio::io_context context_;
  platform::fake::VirtualClock clock_{context_};
  testing::LogCapture capture_{&clock_};
  CustomLogger logger_{"Observer"};
  PostLog log_{clock_, context_.get_executor()};
};

// Ten lines a minute per name and account, then one summary; each name and
// each account counts alone, and a post that several observers report is one line.
TEST_F(PostLogTest, TenLinesAMinutePerNameAndAccountThenOneSummaryAndOneLinePerPost) {
  for (std::uint64_t number = 1; number <= 25; ++number) {
    report("a", number);
    report("a", number);  // A second observer of the same post.
  }
  report("a", 200, 0);  // Root's own budget: not crowded out by uid 501's.
  report("b", 100);
  report("c", 0);
  report("c", 0);  // Unnumbered posts are never taken for one another.
  EXPECT_EQ(capture_.errors().size(), 14u);
  EXPECT_EQ(capture_.errors()[9], "bad a 10");
  EXPECT_EQ(capture_.errors()[10], "bad a 200");
  clock_.advance(std::chrono::seconds(59));
  EXPECT_EQ(capture_.standardOutput().find("Suppressed"), std::string::npos);
  clock_.advance(std::chrono::seconds(1));
  EXPECT_NE(capture_.standardOutput().find(
                "Suppressed 15 malformed a notifications from uid 501 in the last minute."),
            std::string::npos);
  report("a", 26);
  EXPECT_EQ(capture_.errors().back(), "bad a 26");
}

// What other accounts' posts did is told ten times a minute each; root's always.
TEST_F(PostLogTest, DebugLinesOfOtherAccountsAreBudgetedAndRootsAreNot) {
  for (std::uint64_t number = 1; number <= 30; ++number) {
    log_.debug(logger_, post("a", number, 501), "did 501");
    log_.debug(logger_, post("a", number, 502), "did 502");
    log_.debug(logger_, post("a", number, 0), "did root");
  }
  EXPECT_EQ(capture_.debugs().size(), 10u + 10u + 30u);
}

}  // namespace
}  // namespace velmo::core
