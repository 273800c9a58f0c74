#include "agent/maintenance/MaintenanceManager.h"

#include <gtest/gtest.h>

#include "core/values/PropertyList.h"
#include "tests/support/AgentFakes.h"

namespace velmo::agent::maintenance {
namespace {

using std::chrono::hours;
using std::chrono::seconds;

// Wake also reloads the managed preferences, on a timer of their own.
constexpr auto kPreferenceReload = mdm::ManagedPrefs::kReloadDebounce;

class MaintenanceManagerTest : public ::testing::Test, protected testing::AgentFakes {
 protected:
  void start() {
    prefs_ = makePrefs();
    manager_ = MaintenanceManager::make(
        {context_.get_executor(), clock_, files_, paths_, defaults_, *prefs_, workspace_, runner_});
    clock_.runUntilIdle();
  }
  void storeState(core::PlistDictionary state) {
    files_.addFile(paths_.agentStateFile(), core::PropertyList::xml(std::move(state)).value());
  }
  void storeDate(platform::TimePoint date) {
    run::PlistManager(files_, paths_.agentStateFile())
        .setValue(core::PlistValue(core::PlistDate{date}), run::PlistKey::lastMaintenanceTaskRun);
  }

  std::unique_ptr<mdm::ManagedPrefs> prefs_;
  std::shared_ptr<MaintenanceManager> manager_;
};

// A report that hangs is stopped after an hour, and the next cycle, after a
// wake 9 h later, still cuts the log.
TEST_F(MaintenanceManagerTest, AHungReportEndsItsCycleAfterAnHour) {
  stores_.setManaged("com.marvenith.velmo", {{"EnableDashboardReporting", true}});
  launcher_.enqueue({.exitAfterTerminate = seconds(1)});
  start();
  clock_.advance(hours(1) + seconds(1));
  EXPECT_TRUE(logged("Failed to submit Velmo Report with exit code: 124"));
  EXPECT_TRUE(logged("Maintenance cycle #1 finished in: "));
  files_.addFile(paths_.logFile(), std::string(6 * 1024 * 1024, 'x') + "\nkept\n");
  workspace_.send(platform::WorkspaceEvent::willSleep);
  clock_.advance(hours(9));
  workspace_.send(platform::WorkspaceEvent::didWake);
  clock_.advance(seconds(5));
  EXPECT_TRUE(logged("Maintenance cycle #2 finished in: "));
  EXPECT_EQ(files_.readFile(paths_.logFile()).value(), "kept\n");
}

// Waking plans from the end of the last cycle.
struct WakeCase {
  const char* name;
  std::optional<hours> sinceLastCycle;  // None: no date recorded.
  bool runsAtOnce;
  const char* line;
};
void PrintTo(const WakeCase& c, std::ostream* os) { *os << c.name; }

class MaintenanceWakeTest : public MaintenanceManagerTest,
                            public ::testing::WithParamInterface<WakeCase> {};

TEST_P(MaintenanceWakeTest, PlansFromTheLastCycle) {
  const auto& param = GetParam();
  start();
  workspace_.send(platform::WorkspaceEvent::willSleep);
  clock_.runUntilIdle();
  EXPECT_EQ(clock_.pendingTimers(), 0u);
  if (param.sinceLastCycle) {
    storeDate(clock_.now() - *param.sinceLastCycle);
  } else {
    storeState({{"MaintenanceTaskRunCount", core::PlistValue(std::int64_t{1})}});
  }
  workspace_.send(platform::WorkspaceEvent::didWake);
  clock_.advance(kPreferenceReload);
  EXPECT_EQ(logged("Maintenance cycle #2 started."), param.runsAtOnce);
  EXPECT_EQ(debugCount("was in the past. Running maintenance cycle immediately."),
            param.runsAtOnce && param.sinceLastCycle ? 1u : 0u);
  EXPECT_TRUE(logged(param.line)) << param.line;
  EXPECT_EQ(clock_.pendingTimers(), 1u);
  // The armed timer starts the next cycle on its own.
  clock_.advance(hours(8));
  EXPECT_TRUE(
      logged(param.runsAtOnce ? "Maintenance cycle #3 started." : "Maintenance cycle #2 started."));
}

INSTANTIATE_TEST_SUITE_P(
    Cases, MaintenanceWakeTest,
    ::testing::Values(WakeCase{"ThreeHoursAfter", hours(3), false,
                               "Scheduled next maintenance cycle after wake in 5 hours."},
                      WakeCase{"NineHoursAfter", hours(9), true,
                               "Maintenance cycle #2 finished in: "},
                      WakeCase{"NoDate", std::nullopt, true, "Maintenance cycle #2 finished in: "}),
    [](const auto& info) { return std::string(info.param.name); });

}  // namespace
}  // namespace velmo::agent::maintenance
