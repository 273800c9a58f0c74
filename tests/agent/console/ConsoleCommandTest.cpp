// The console as an administrator meets it: what `status` and `explain` say
// for a few machines, and their exit statuses. Times are the virtual clock's:
// Tuesday 2026-03-10 14:05:09 UTC.
#include "agent/console/ConsoleCommand.h"

#include <gtest/gtest.h>

#include <functional>
#include <sstream>

#include <nlohmann/json.hpp>

#include "core/time/VelmoTimeWindow.h"
#include "tests/support/ConsoleMachine.h"

namespace velmo::agent::console {
namespace {

using core::VelmoTimeWindow;
using core::Weekday;
using Kind = Invocation::Kind;

struct Machine : testing::ConsoleMachine {
  void allowWednesdayNight() {
    defaults.set(
        "GlobalAllowWindows",
        VelmoTimeWindow::toPlistArray({{.days = {Weekday::wed}, .start = {2, 0}, .end = {3, 0}}}));
  }
};

struct ConsoleCase {
  const char* name;
  Kind kind;
  std::function<void(Machine&)> setUp;
  int status;
  // JSON pointer to the expected value; for exit 1, a fragment of standard error.
  std::vector<std::pair<const char*, nlohmann::json>> expected;
};

void PrintTo(const ConsoleCase& c, std::ostream* os) { *os << c.name; }

class Console : public ::testing::TestWithParam<ConsoleCase> {};

TEST_P(Console, SaysWhatTheAgentWouldDo) {
  const auto& c = GetParam();
  Machine machine;
  c.setUp(machine);
  std::ostringstream out, err;
  const Invocation invocation{.kind = c.kind, .json = true};
  const int status = ConsoleCommand::run(invocation, machine.inputs(), false, out, err);
  ASSERT_EQ(status, c.status) << err.str();
  if (status != 0) {
    EXPECT_NE(err.str().find(c.expected.front().second.get<std::string>()), std::string::npos)
        << err.str();
    return;
  }
  const auto json = nlohmann::json::parse(out.str());
  for (const auto& [pointer, value] : c.expected) {
    EXPECT_EQ(json.value(nlohmann::json::json_pointer(pointer), nlohmann::json()), value)
        << pointer;
  }
}

const auto kStateFile = "/sandbox/Library/Preferences/com.marvenith.velmo-agent.plist";
const auto kLastRunTwoHoursAgo =
    "<plist version=\"1.0\"><dict><key>UpdateTaskRunCount</key><integer>7</integer>"
    "<key>LastUpdateTaskRun</key><string>2026-03-10T12:05:09Z</string></dict></plist>";

INSTANTIATE_TEST_SUITE_P(
    Table, Console,
    ::testing::Values(
        ConsoleCase{"NothingToReadIsExitOne",
                    Kind::status,
                    [](Machine&) {},
                    1,
                    {{"", "nothing could be read"}}},
        ConsoleCase{"OutsideTheWindowsSaysWhyAndUntilWhen",
                    Kind::status,
                    [](Machine& m) {
                      m.files.addFile(kStateFile, kLastRunTwoHoursAgo);
                      m.allowWednesdayNight();
                      m.stores.setManaged("com.marvenith.velmo-agent", {{"UpdateMAS", "true"}});
                    },
                    0,
                    {{"/windows/allowedNow", false},
                     {"/windows/reason", "outside every allow window"},
                     {"/windows/nextAllowed", "2026-03-11T02:00:00.000Z"},
                     {"/nextRun", "2026-03-11T02:00:00.000Z"},
                     {"/policy/16/key", "UpdateMAS"},
                     {"/policy/16/source", "managed"},
                     {"/policy/16/ignored", true}}},
        ConsoleCase{"TheTuesdayWindowOpensInWeekTwoOnly",
                    Kind::explain,
                    [](Machine& m) {
                      m.files.addFile(kStateFile, kLastRunTwoHoursAgo);
                      m.defaults.set("EnableVelmoTuesdayWindow", true);
                      m.defaults.set("InstallOrUpdate", core::PlistArray{"firefox"});
                    },
                    0,
                    // March 10 is the Tuesday of week 2: due at 16:05, inside its window.
                    {{"/scheduledRuns/0/at", "2026-03-10T16:05:09.000Z"},
                     {"/stretches/1/start", "2026-03-10T17:01:00.000Z"},
                     {"/stretches/1/kind", "outside"},
                     {"/stretches/1/reason",
                      "outside the Tuesday window (Tuesday of calendar week 2, 09:00\u201317:00)"},
                     {"/commands/scheduledRun/0",
                      {"/sandbox/Library/Application Support/Marvenith/Velmo/velmo", "install",
                       "marvenith-velmo", "firefox"}},
                     {"/commands/appQuit/2", "<app id>"}}}),
    [](const auto& info) { return std::string(info.param.name); });

// The text an administrator reads: the README's example policy (Mon and Wed
// 12:00-13:30) in the week picture, with the reason for the stretch after it.
TEST(ConsoleText, ExplainDrawsTheWeekAndSaysWhy) {
  Machine machine;
  machine.files.addFile(kStateFile, kLastRunTwoHoursAgo);
  machine.defaults.set(
      "GlobalAllowWindows",
      VelmoTimeWindow::toPlistArray(
          {{.days = {Weekday::mon, Weekday::wed}, .start = {12, 0}, .end = {13, 30}}}));
  std::ostringstream out, err;
  const Invocation invocation{.kind = Kind::explain};
  ASSERT_EQ(ConsoleCommand::run(invocation, machine.inputs(), false, out, err), 0) << err.str();
  const std::string text = out.str();
  // Half-hour cells: 12:00-13:30 allowed, 13:30-14:00 partly (the end minute counts).
  const auto row = [](const char* day, bool open) {
    std::string cells;
    for (int i = 0; i < 48; ++i) {
      cells += !open || i < 24 || i > 27 ? "\u00b7" : i < 27 ? "\u2588" : "\u258c";
    }
    return std::string(day) + " " + cells + "\n";
  };
  EXPECT_NE(text.find(row("Wed 11 Mar", true)), std::string::npos) << text;
  EXPECT_NE(text.find(row("Thu 12 Mar", false)), std::string::npos) << text;
  EXPECT_NE(text.find(row("Mon 16 Mar", true)), std::string::npos) << text;
  EXPECT_NE(text.find("blocked: outside every allow window"), std::string::npos) << text;
}

}  // namespace
}  // namespace velmo::agent::console
