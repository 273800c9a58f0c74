// Sample profiles, one per kind of mistake, and the README's examples, which
// must come out clean. Windows are judged in UTC from Tuesday 2026-03-10.
#include "agent/console/PolicyLint.h"

#include "agent/console/PolicyFileLint.h"

#include <gtest/gtest.h>

#include "backends/fake/FakeFileManager.h"
#include "core/values/PropertyList.h"

namespace velmo::agent::console {
namespace {

using Severity = PolicyLint::Severity;

const platform::TimePoint kNow{std::chrono::seconds(1773151509)};
constexpr const char* kAgent = "com.marvenith.velmo-agent";

std::string window(const char* days, int fromHour, int toHour, const char* extra = "") {
  return std::string("<dict><key>days</key><array>") + days +
         "</array><key>start</key><dict><key>hour</key><integer>" + std::to_string(fromHour) +
         "</integer><key>minute</key><integer>0</integer></dict><key>end</key><dict><key>hour</key>"
         "<integer>" +
         std::to_string(toHour) + "</integer><key>minute</key><integer>30</integer></dict>" +
         extra + "</dict>";
}

struct Finding {
  std::string key;
  Severity severity;
  std::string fragment;
};

struct LintCase {
  const char* name;
  const char* domain;
  std::string body;  // The dictionary's content, as XML.
  std::vector<Finding> findings;
  int status;
};

void PrintTo(const LintCase& c, std::ostream* os) { *os << c.name; }

class Lint : public ::testing::TestWithParam<LintCase> {};

TEST_P(Lint, FindsEachMistakeWithItsConsequence) {
  const auto& c = GetParam();
  const auto root =
      core::PropertyList::parse("<plist version=\"1.0\"><dict>" + c.body + "</dict></plist>");
  ASSERT_TRUE(root && root->is<core::PlistDictionary>()) << c.body;
  const auto found = PolicyLint::lintValues("p.plist", c.domain,
                                            *root->getIf<core::PlistDictionary>(), kNow, "UTC");
  std::string all;
  for (const auto& each : found) all += PolicyLint::line(each) + "\n";
  ASSERT_EQ(found.size(), c.findings.size()) << all;
  for (std::size_t i = 0; i < found.size(); ++i) {
    EXPECT_EQ(found[i].key, c.findings[i].key) << all;
    EXPECT_EQ(found[i].severity, c.findings[i].severity) << all;
    EXPECT_NE(found[i].text.find(c.findings[i].fragment), std::string::npos) << all;
  }
  EXPECT_EQ(PolicyLint::exitStatus(found), c.status);
}

const std::string kMonWed = "<string>mon</string><string>wed</string>";

INSTANTIATE_TEST_SUITE_P(
    Table, Lint,
    ::testing::Values(
        LintCase{"ReadmeExampleIsClean",
                 kAgent,
                 "<key>GlobalAllowWindows</key><array>" + window(kMonWed.c_str(), 12, 13) +
                     "</array><key>InstallOrUpdate</key><array><string>firefox</string></array>",
                 {},
                 0},
        LintCase{"TypoGetsTheNearestKey",
                 kAgent,
                 "<key>RunIntreval</key><integer>3600</integer>",
                 {{"RunIntreval", Severity::warning, "did you mean RunInterval?"}},
                 1},
        LintCase{"BooleanAsStringReadsTwoWays",
                 kAgent,
                 "<key>UpdateMAS</key><string>true</string>",
                 {{"UpdateMAS", Severity::warning,
                   "runs read it as false, the default; queued items read it as true"}},
                 1},
        LintCase{"Intervals",
                 kAgent,
                 "<key>RunInterval</key><real>-5</real>",
                 {{"RunInterval", Severity::error, "above 0"}},
                 2},
        LintCase{"BatteryPercentOutOfRange",
                 kAgent,
                 "<key>MinimumBatteryPercent</key><integer>150</integer>"
                 "<key>RunOnlyOnACPower</key><string>yes</string>",
                 {{"RunOnlyOnACPower", Severity::warning, "where a Boolean belongs"},
                  {"MinimumBatteryPercent", Severity::warning, "not from 0 to 100: read as 100"}},
                 1},
        LintCase{"SplayOverADay",
                 kAgent,
                 "<key>RunSplay</key><integer>90000</integer>",
                 {{"RunSplay", Severity::warning, "cut to 86400 seconds"}},
                 1},
        LintCase{"SplayNegative",
                 kAgent,
                 "<key>RunSplay</key><real>-1</real>",
                 {{"RunSplay", Severity::warning, "runs are not spread"}},
                 1},
        LintCase{"IntervalAsString",
                 kAgent,
                 "<key>RunInterval</key><string>600</string>",
                 {{"RunInterval", Severity::warning, "a policy change reads it as unset"},
                  {"RunInterval", Severity::warning, "under 15 minutes"}},
                 1},
        LintCase{"WindowsOffTheClockAndWeeks",
                 kAgent,
                 "<key>GlobalBlackoutWindows</key><array>" +
                     window("<string>sun</string>", 25, 3,
                            "<key>weeksOfMonth</key><array><integer>7</integer></array>") +
                     "</array>",
                 {{"GlobalBlackoutWindows", Severity::warning, "start is outside the clock"},
                  {"GlobalBlackoutWindows", Severity::warning, "week 7 of the month never occurs"},
                  {"GlobalBlackoutWindows", Severity::warning, "never holds a moment"}},
                 1},
        LintCase{"AllowInsideBlackout",
                 kAgent,
                 "<key>GlobalAllowWindows</key><array>" + window("<string>mon</string>", 12, 13) +
                     "</array><key>GlobalBlackoutWindows</key><array>" +
                     window("<string>mon</string>", 11, 14) + "</array>",
                 {{"GlobalAllowWindows", Severity::warning, "wholly inside blackout windows"},
                  {"GlobalAllowWindows", Severity::error, "no run in the next 60 days"}},
                 2},
        LintCase{"UnreadableWindowList",
                 kAgent,
                 "<key>GlobalAllowWindows</key><string>always</string>",
                 {{"GlobalAllowWindows", Severity::error, "runs are not restricted"}},
                 2},
        LintCase{"TuesdayBesideAllowWindows",
                 kAgent,
                 "<key>EnableVelmoTuesdayWindow</key><true/><key>GlobalAllowWindows</key><array>" +
                     window(kMonWed.c_str(), 12, 13) + "</array>",
                 {{"EnableVelmoTuesdayWindow", Severity::warning, "ignored"}},
                 1},
        LintCase{"ScopeAndIDs",
                 kAgent,
                 "<key>UpdateAll</key><true/><key>UpdateOnly</key><array><string>zoom</string>"
                 "<string>x;rm -rf</string></array>",
                 {{"UpdateOnly", Severity::error, "is refused"},
                  {"UpdateOnly", Severity::warning, "UpdateAll is true"}},
                 2},
        LintCase{"ValuesTheAgentIgnores",
                 kAgent,
                 "<key>UpdateChannel</key><string>nightly</string><key>IntegrityPolicy</key>"
                 "<string>ALL</string>",
                 {{"UpdateChannel", Severity::warning, "the stable one is used"},
                  {"IntegrityPolicy", Severity::warning, "no --integrity-policy"}},
                 1},
        // Another program's domain: its own keys are no concern; the agent's key is read loosely.
        LintCase{
            "NotifierDomain",
            "com.marvenith.velmo-notifier",
            "<key>SomeCompanionKey</key><true/><key>EnableMenuBarApp</key><string>YES</string>",
            {{"EnableMenuBarApp", Severity::warning, "read loosely as true"}},
            1}),
    [](const auto& info) { return std::string(info.param.name); });

TEST(LintFile, AFileThatIsNoPropertyListIsAnError) {
  platform::fake::FakeFileManager files;
  files.addFile("/p/com.marvenith.velmo-agent.plist", "RunInterval = 3600");
  const auto found =
      PolicyFileLint::lintFile(files, "/p/com.marvenith.velmo-agent.plist", kNow, "UTC");
  ASSERT_EQ(found.size(), 1u);
  EXPECT_EQ(PolicyLint::line(found[0]).substr(0, 47),
            "/p/com.marvenith.velmo-agent.plist: error: not ");
  EXPECT_EQ(PolicyLint::exitStatus(found), 2);
}

}  // namespace
}  // namespace velmo::agent::console
