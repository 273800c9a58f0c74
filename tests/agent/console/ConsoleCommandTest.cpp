// The console as an administrator meets it: what `status` and `explain` say
// for a few machines, and their exit statuses. Times are the virtual clock's:
// Tuesday 2026-03-10 14:05:09 UTC.
#include "agent/console/ConsoleCommand.h"

#include <gtest/gtest.h>

#include <functional>
#include <map>
#include <sstream>

#include <nlohmann/json.hpp>

#include "core/time/VelmoTimeWindow.h"
#include "tests/support/ConsoleMachine.h"
#include "tests/support/ProfileXml.h"

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
                     {"/commands/appQuit/2", "<app id>"}}},
        // The running agent holds scheduled runs on battery: both commands say so.
        ConsoleCase{"ConditionsHoldTheRunsInStatus",
                    Kind::status,
                    [](Machine& m) {
                      m.defaults.set("RunOnlyOnACPower", true);
                      m.defaults.set("MinimumBatteryPercent", std::int64_t{20});
                      m.agent.agent = platform::RunningAgent{
                          {.version = "1", .runsHeldBy = "on battery (RunOnlyOnACPower)"}, 7};
                    },
                    0,
                    {{"/runs/heldBy", "on battery (RunOnlyOnACPower)"},
                     {"/conditions/0", "mains power (RunOnlyOnACPower)"},
                     {"/conditions/1", "at least 20% on battery (MinimumBatteryPercent)"}}},
        ConsoleCase{"ConditionsHoldTheRunsInExplain",
                    Kind::explain,
                    [](Machine& m) {
                      m.defaults.set("RunOnlyOnUnmeteredNetwork", true);
                      m.agent.agent = platform::RunningAgent{
                          {.version = "1",
                           .runsHeldBy = "on a metered network (RunOnlyOnUnmeteredNetwork)"},
                          7};
                    },
                    0,
                    {{"/blockedNow", "on a metered network (RunOnlyOnUnmeteredNetwork)"},
                     {"/conditions/0", "an unmetered network (RunOnlyOnUnmeteredNetwork)"}}}),
    [](const auto& info) { return std::string(info.param.name); });

// `explain --profile` must say what the live `explain` says once the profile
// is deployed: the same policy placed in the managed stores by hand, under the
// same moment and last run, in text and in JSON. The machine's own managed
// policy is what the profile replaces, and none of it may show.
using Policy = std::map<std::string, core::PlistDictionary>;

struct ProfileCase {
  const char* name;
  const char* file;
  std::string contents;  // Empty: no file there.
  Policy policy;         // What the profile sets, as the managed stores would hold it.
  // Root's own and the machine-wide stores, beneath on both machines.
  std::function<void(Machine&)> beneath;
  // A value that shows the profile took effect; for a refusal, its pointer is
  // empty and the value a fragment of standard error.
  std::pair<const char*, nlohmann::json> expected;
};

void PrintTo(const ProfileCase& c, std::ostream* os) { *os << c.name; }

class ExplainProfile : public ::testing::TestWithParam<ProfileCase> {};

constexpr auto kAgentDomain = "com.marvenith.velmo-agent";
constexpr auto kFrom = "2026-11-24T05:00:00Z";
constexpr auto kLastRun = "2026-11-24T04:30:00Z";

// As the agent's own defaults read the stores: machine-wide, then root's, then managed winning.
void placeInStores(Machine& machine, const Policy& policy) {
  for (const auto& [domain, values] : policy) machine.stores.setManaged(domain, values);
  for (const auto& layer :
       {machine.stores.machineValues(kAgentDomain).value_or(core::PlistDictionary{}),
        machine.stores.copyAllValues(kAgentDomain),
        machine.stores.managedValues(kAgentDomain).value_or(core::PlistDictionary{})}) {
    for (const auto& [key, value] : layer) machine.defaults.set(key, value);
  }
}

TEST_P(ExplainProfile, SaysWhatTheLiveExplainSaysOnceDeployed) {
  const auto& c = GetParam();
  Machine live, deployed;
  for (auto* machine : {&live, &deployed}) {
    machine->timeZone = "Europe/Berlin";
    c.beneath(*machine);
  }
  live.files.addFile(kStateFile, "<plist version=\"1.0\"><dict><key>LastUpdateTaskRun</key><date>" +
                                     std::string(kLastRun) + "</date></dict></plist>");
  placeInStores(live, c.policy);
  placeInStores(deployed, {{kAgentDomain, {{"UpdateAll", true}, {"RunInterval", 600.0}}},
                           {"com.marvenith.velmo-notifier", {{"EnableMenuBarApp", true}}}});
  if (!c.contents.empty()) deployed.files.addFile(c.file, c.contents);
  for (const bool json : {false, true}) {
    std::ostringstream deployedOut, liveOut, err;
    const Invocation asked{
        .kind = Kind::explain, .json = json, .from = kFrom, .profile = c.file, .lastRun = kLastRun};
    const int status = ConsoleCommand::run(asked, deployed.inputs(), false, deployedOut, err);
    if (!*c.expected.first) {
      EXPECT_EQ(status, 1);
      EXPECT_NE(err.str().find(c.expected.second.get<std::string>()), std::string::npos)
          << err.str();
      EXPECT_EQ(deployedOut.str(), "");
      continue;
    }
    ASSERT_EQ(status, 0) << err.str();
    const Invocation plain{.kind = Kind::explain, .json = json, .from = kFrom};
    ASSERT_EQ(ConsoleCommand::run(plain, live.inputs(), false, liveOut, err), 0) << err.str();
    EXPECT_EQ(deployedOut.str(), liveOut.str());
    if (json) {
      EXPECT_EQ(nlohmann::json::parse(deployedOut.str())
                    .value(nlohmann::json::json_pointer(c.expected.first), nlohmann::json()),
                c.expected.second);
    }
  }
}

const std::string kWifi = testing::payload("com.apple.wifi.managed", "com.example.wifi", "");

INSTANTIATE_TEST_SUITE_P(
    Table, ExplainProfile,
    ::testing::Values(
        // The administrators' example: Mon and Wed 12:00-13:30, and firefox.
        ProfileCase{
            "TheExamplePolicyAsAProfile",
            "/profiles/velmo.mobileconfig",
            testing::profile(
                testing::payload(
                    kAgentDomain, "com.example.velmo.agent",
                    "<key>GlobalAllowWindows</key><array><dict><key>days</key><array><string>mon"
                    "</string><string>wed</string></array><key>start</key><dict><key>hour</key>"
                    "<integer>12</integer><key>minute</key><integer>0</integer></dict><key>end"
                    "</key><dict><key>hour</key><integer>13</integer><key>minute</key><integer>30"
                    "</integer></dict></dict></array><key>InstallOrUpdate</key><array><string>"
                    "firefox</string></array>") +
                kWifi),
            {{kAgentDomain,
              {{"GlobalAllowWindows",
                VelmoTimeWindow::toPlistArray(
                    {{.days = {Weekday::mon, Weekday::wed}, .start = {12, 0}, .end = {13, 30}}})},
               {"InstallOrUpdate", core::PlistArray{"firefox"}}}}},
            [](Machine&) {},
            {"/scheduledRuns/0/at", "2026-11-25T11:00:00.000Z"}},
        // Custom settings for the agent, a payload for the companion, and root's
        // own store beneath: the ID and UpdateMAS come from there, RunInterval
        // from the profile.
        ProfileCase{
            "CustomSettingsOverRootsOwnStore",
            "/profiles/custom.mobileconfig",
            testing::profile(
                testing::payload(
                    "com.apple.ManagedClient.preferences", "",
                    "<key>PayloadContent</key><dict><key>com.marvenith.velmo-agent</key><dict>"
                    "<key>Forced</key><array><dict><key>mcx_preference_settings</key><dict><key>"
                    "RunInterval</key><integer>3600</integer><key>DisableSelfUpdate</key><true/>"
                    "</dict></dict></array></dict></dict>") +
                testing::payload("com.marvenith.velmo-notifier", "com.example.notifier",
                                 "<key>EnableMenuBarApp</key><true/>")),
            {{kAgentDomain, {{"RunInterval", std::int64_t{3600}}, {"DisableSelfUpdate", true}}},
             {"com.marvenith.velmo-notifier", {{"EnableMenuBarApp", true}}}},
            [](Machine& m) {
              m.stores.setRoot(kAgentDomain, {{"RunInterval", std::int64_t{7200}},
                                              {"UpdateMAS", true},
                                              {"InstallOrUpdate", core::PlistArray{"firefox"}}});
            },
            {"/intervalSeconds", 3600}},
        // A plain list: its name gives the domain. The machine's managed
        // companion settings go with the rest of its managed layer.
        ProfileCase{"PlainListNamedForItsDomain",
                    "/profiles/com.marvenith.velmo-agent.plist",
                    "<plist version=\"1.0\"><dict><key>RunInterval</key><integer>86400</integer>"
                    "</dict></plist>",
                    {{kAgentDomain, {{"RunInterval", std::int64_t{86400}}}}},
                    [](Machine&) {},
                    {"/intervalSeconds", 86400}},
        ProfileCase{"MissingFileIsExitOne",
                    "/profiles/absent.mobileconfig",
                    "",
                    {},
                    [](Machine&) {},
                    {"", "--profile /profiles/absent.mobileconfig: can't be read"}},
        ProfileCase{"NoPayloadForTheAgentsDomainsIsExitOne",
                    "/profiles/wifi.mobileconfig",
                    testing::profile(kWifi),
                    {},
                    [](Machine&) {},
                    {"", "no payload for the domains the agent reads"}}),
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
