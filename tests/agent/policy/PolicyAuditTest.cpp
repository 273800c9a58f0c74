#include "agent/policy/PolicyAudit.h"

#include <gtest/gtest.h>

namespace velmo::agent::policy {
namespace {

using core::VelmoTimeWindow;
using core::Weekday;

const VelmoTimeWindow kNoon{
    .days = {Weekday::mon, Weekday::wed}, .start = {12, 0}, .end = {13, 30}};
const VelmoTimeWindow kNight{.days = {Weekday::tue}, .start = {2, 0}, .end = {3, 0}};

struct AuditCase {
  const char* name;
  std::function<void(VelmoRunConfig&)> before;
  std::function<void(VelmoRunConfig&)> after;
  // key | before | after | line
  std::vector<std::array<std::string, 4>> changes;
};

void PrintTo(const AuditCase& c, std::ostream* os) { *os << c.name; }

class Audit : public ::testing::TestWithParam<AuditCase> {};

TEST_P(Audit, OneLinePerChangedKey) {
  VelmoRunConfig before;
  VelmoRunConfig after;
  GetParam().before(before);
  GetParam().after(after);
  std::vector<std::array<std::string, 4>> seen;
  for (const auto& change : PolicyAudit::changes(before, after)) {
    seen.push_back({change.key, change.before, change.after, change.line});
  }
  EXPECT_EQ(seen, GetParam().changes);
}

INSTANTIATE_TEST_SUITE_P(
    Table, Audit,
    ::testing::Values(
        AuditCase{"IntervalAndFlags",
                  [](VelmoRunConfig& c) { c.runInterval = 14400; },
                  [](VelmoRunConfig& c) {
                    c.runInterval = 3600.5;
                    c.updateAll = true;
                    c.allowUserInitiatedOutsideWindows = false;
                  },
                  {{"RunInterval", "14400", "3600.5", "Policy RunInterval: 14400 \u2192 3600.5."},
                   {"AllowUserInitiatedOutsideWindows", "true", "false",
                    "Policy AllowUserInitiatedOutsideWindows: true \u2192 false."},
                   {"UpdateAll", "false", "true", "Policy UpdateAll: false \u2192 true."}}},
        AuditCase{"WindowsAsSlots",
                  [](VelmoRunConfig& c) { c.globalAllowWindows = {kNight}; },
                  [](VelmoRunConfig& c) { c.globalAllowWindows = {kNoon}; },
                  {{"GlobalAllowWindows", "Tue 02:00\u201303:00", "Mon, Wed 12:00\u201313:30",
                    "Policy GlobalAllowWindows: + Mon, Wed 12:00\u201313:30; \u2212 Tue "
                    "02:00\u201303:00."}}},
        AuditCase{"ReorderedWindows",
                  [](VelmoRunConfig& c) {
                    c.globalBlackoutWindows = {kNoon, kNight};
                  },
                  [](VelmoRunConfig& c) {
                    c.globalBlackoutWindows = {kNight, kNoon};
                  },
                  {{"GlobalBlackoutWindows", "Mon, Wed 12:00\u201313:30; Tue 02:00\u201303:00",
                    "Tue 02:00\u201303:00; Mon, Wed 12:00\u201313:30",
                    "Policy GlobalBlackoutWindows: reordered."}}},
        AuditCase{"IDsAddedAndRemoved",
                  [](VelmoRunConfig& c) {
                    c.installOrUpdate = {"firefox", "slack"};
                  },
                  [](VelmoRunConfig& c) {
                    c.installOrUpdate = {"firefox", "zoom"};
                    c.updateOnly = {"vlc"};
                  },
                  {{"InstallOrUpdate", "firefox, slack", "firefox, zoom",
                    "Policy InstallOrUpdate: + zoom; \u2212 slack."},
                   {"UpdateOnly", "none", "vlc", "Policy UpdateOnly: + vlc."}}}),
    [](const auto& info) { return std::string(info.param.name); });

}  // namespace
}  // namespace velmo::agent::policy
