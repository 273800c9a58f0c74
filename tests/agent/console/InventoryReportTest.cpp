// The inventory report as inventory tools read it: built from what `status`
// sees plus what only the running agent knows, read back one value at a time
// with `status --field` and `--ea`. Times are the virtual clock's: Tuesday
// 2026-03-10 14:05:09 UTC.
#include "agent/console/InventoryReport.h"

#include <gtest/gtest.h>

#include <sstream>

#include "agent/console/AgentFacts.h"
#include "agent/console/ConsoleCommand.h"
#include "core/time/Iso8601DateFormatter.h"
#include "core/values/PropertyList.h"
#include "tests/support/ConsoleMachine.h"

namespace velmo::agent::console {
namespace {

platform::TimePoint at(const char* text) { return *core::Iso8601DateFormatter::date(text); }

struct FieldCase {
  const char* name;
  const char* field;
  bool extensionAttribute;
  const char* out;
};

void PrintTo(const FieldCase& c, std::ostream* os) { *os << c.name; }

class InventoryReportField : public ::testing::TestWithParam<FieldCase> {};

TEST_P(InventoryReportField, PrintsOneValueOfTheReport) {
  testing::ConsoleMachine machine;
  machine.files.addFile(
      machine.paths.updateStateFile(),
      R"([{"id":"firefox","friendlyName":"Firefox","targetVersion":"2.0","installedVersion":"1.0",)"
      R"("installPath":"/Applications/Firefox.app","respectDnd":false,"respectMeetings":false},)"
      R"({"id":"zoom","friendlyName":"Zoom","targetVersion":"6","installPath":"/Applications/zoom.app",)"
      R"("respectDnd":false,"respectMeetings":false}])");
  machine.files.addFile(
      machine.paths.deferralsFile(),
      R"({"firefox_2.0":{"identifier":"firefox_2.0","appId":"firefox","targetVersion":"2.0",)"
      R"("deferralCount":2,"deferrals":[{"timestamp":"2026-03-09T10:00:00Z","reason":"r"},)"
      R"({"timestamp":"2026-03-10T09:00:00Z","reason":"r"}]}})");
  machine.stores.setManaged("com.marvenith.velmo-agent", {{"RunInterval", 7200.0}});
  machine.agent.agent = platform::RunningAgent{
      {.version = "1.2 (3)", .startedAt = at("2026-03-10T12:00:00Z"), .runCount = 4}, 42};
  const auto view = StatusView::from(AgentFacts::gather(machine.inputs()));
  const InventoryReport::Live live{
      .lastRun = run::LastRun{.userInitiated = true,
                              .startedAt = at("2026-03-10T13:00:00Z"),
                              .endedAt = at("2026-03-10T13:02:00Z"),
                              .result = "failed",
                              .installs = 1},
      .recentErrors = {{at("2026-03-10T13:01:00Z"), "Velmo Run failed with exit code: 3"}},
      .listedSince = {{"firefox", at("2026-03-01T08:00:00Z")}}};
  const auto report = InventoryReport::build(view, live);
  machine.files.addFile(machine.paths.inventoryReportFile(),
                        *core::PropertyList::xml(core::PlistValue(report)));

  std::ostringstream out, err;
  const Invocation invocation{.kind = Invocation::Kind::status,
                              .field = GetParam().field,
                              .extensionAttribute = GetParam().extensionAttribute};
  EXPECT_EQ(ConsoleCommand::run(invocation, machine.inputs(), false, out, err), 0) << err.str();
  EXPECT_EQ(out.str(), std::string(GetParam().out) + "\n");
}

INSTANTIATE_TEST_SUITE_P(
    Table, InventoryReportField,
    ::testing::Values(
        FieldCase{"Version", "AgentVersion", false, "1.2 (3)"},
        FieldCase{"RunCountAsAttribute", "RunCount", true, "<result>4</result>"},
        FieldCase{"LastRunInsideItsDictionary", "LastRun.Result", false, "failed"},
        FieldCase{"LastRunKind", "LastRun.Kind", false, "user"},
        FieldCase{"DatesInWholeSeconds", "LastRun.EndedAt", true,
                  "<result>2026-03-10T13:02:00Z</result>"},
        FieldCase{"Booleans", "RunAllowedNow", false, "true"},
        // Kept from the previous report; a new item is listed since now.
        FieldCase{
            "ListedSinceKept", "PendingItems", false,
            R"([{"ID":"firefox","InstalledVersion":"1.0","ListedSince":"2026-03-01T08:00:00.000Z","Name":"Firefox","TargetVersion":"2.0"},{"ID":"zoom","ListedSince":"2026-03-10T14:05:09.000Z","Name":"Zoom","TargetVersion":"6"}])"},
        FieldCase{
            "DeferralsSummedWithTheLatest", "Deferrals", false,
            R"([{"App":"firefox","Count":2,"Last":"2026-03-10T09:00:00.000Z","Version":"2.0"}])"},
        FieldCase{"OnlyWhatTheAdministratorSet", "Policy", false, R"({"RunInterval":7200.0})"},
        FieldCase{
            "ErrorLines", "RecentErrors", false,
            R"([{"Date":"2026-03-10T13:01:00.000Z","Text":"Velmo Run failed with exit code: 3"}])"},
        FieldCase{"AbsentIsEmpty", "NoSuchKey", true, "<result></result>"},
        FieldCase{"NoPathThroughAValue", "RunCount.Value", false, ""}),
    [](const auto& info) { return std::string(info.param.name); });

TEST(InventoryReportFieldTest, AMissingReportIsAnEmptyAttributeAndAnError) {
  testing::ConsoleMachine machine;
  std::ostringstream out, err;
  const Invocation invocation{
      .kind = Invocation::Kind::status, .field = "NextRun", .extensionAttribute = true};
  EXPECT_EQ(ConsoleCommand::run(invocation, machine.inputs(), false, out, err), 1);
  EXPECT_EQ(out.str(), "<result></result>\n");
  EXPECT_NE(err.str().find("InventoryReport.plist can't be read"), std::string::npos) << err.str();
}

}  // namespace
}  // namespace velmo::agent::console
