#include "agent/run/VelmoRunCoordinator.h"

#include <gtest/gtest.h>

#include <asio/co_spawn.hpp>
#include <asio/detached.hpp>

#include "backends/fake/FakeNetworkCost.h"
#include "backends/fake/FakePowerSource.h"
#include "tests/support/AgentFakes.h"

namespace velmo::agent::run {
namespace {

using platform::WorkspaceEvent;
using std::chrono::hours;
using std::chrono::milliseconds;
using std::chrono::minutes;
using std::chrono::seconds;
using Calls = std::vector<std::vector<std::string>>;

// The virtual clock starts on Tuesday 2026-03-10 at 14:05:09 UTC.
const platform::TimePoint kStart = platform::fake::VirtualClock::kDefaultStart;
const platform::TimePoint kWednesday0200 = kStart + hours(11) + minutes(54) + seconds(51);

core::UpdateItem item(const std::string& id) {
  return core::UpdateItem(id, id, "2.0", "1.0", "/Applications/" + id + ".app", false, false);
}

// The list as the UI controller keeps it, with what the coordinator asked of it.
class FakeListedItems final : public ListedItems {
 public:
  std::vector<core::UpdateItem> items;
  std::vector<std::pair<std::string, double>> removals;
  std::vector<std::string> deferralRemovals;

  const std::vector<core::UpdateItem>& updateItems() const override { return items; }
  void scheduleRemoval(const core::UpdateItem& item, core::TimeInterval delay) override {
    removals.emplace_back(item.id, delay.count());
  }
  void postRemoveDeferrals(const core::UpdateItem& item) override {
    deferralRemovals.push_back(item.id);
  }
};

class VelmoRunCoordinatorTest : public ::testing::Test, protected testing::AgentFakes {
 protected:
  void setManaged(const char* domain, core::PlistDictionary values) {
    stores_.setManaged(domain, std::move(values));
    prefs_ = makePrefs();
  }
  // Runs may start only on Wednesdays from 02:00 to 03:00.
  void allowOnlyWednesdayNight() {
    core::VelmoTimeWindow window{.days = {core::Weekday::wed}, .start = {2, 0}, .end = {3, 0}};
    defaults_.set("GlobalAllowWindows", core::VelmoTimeWindow::toPlistArray({window}));
  }
  void start() { coordinator_ = VelmoRunCoordinator::make(collaborators()); }
  // A run requested now; `served` counts the requests that returned.
  void requestRun(bool userInitiated, int& served) {
    asio::co_spawn(
        context_,
        [this, userInitiated, &served]() -> asio::awaitable<void> {
          co_await coordinator_->requestRun(userInitiated);
          ++served;
        },
        asio::detached);
  }

  VelmoRunCoordinator::Collaborators collaborators() {
    return {.mainExecutor = context_.get_executor(),
            .clock = clock_,
            .files = files_,
            .paths = paths_,
            .userDefaults = defaults_,
            .managedPrefs = *prefs_,
            .distributedCenter = distributed_,
            .workspaceEvents = workspace_,
            .runner = runner_,
            .inventory = inventory_,
            .currentTimeZone = [] { return std::string("UTC"); },
            .power = &power_,
            .network = &network_};
  }

  std::optional<std::int64_t> runCount() const {
    const auto value = state_.value(PlistKey::updateTaskRunCount);
    if (!value || !value->is<std::int64_t>()) return std::nullopt;
    return *value->getIf<std::int64_t>();
  }
  std::optional<platform::TimePoint> lastRun() const {
    const auto value = state_.value(PlistKey::lastUpdateTaskRun);
    if (!value || !value->is<core::PlistDate>()) return std::nullopt;
    return value->getIf<core::PlistDate>()->value;
  }

  PlistManager state_{files_, paths_.agentStateFile()};
  std::unique_ptr<mdm::ManagedPrefs> prefs_ = makePrefs();
  InventoryUpdater inventory_{launcher_, clock_, "/usr/local/bin/jamf"};
  std::shared_ptr<VelmoRunCoordinator> coordinator_;
  platform::fake::FakePowerSource power_;
  platform::fake::FakeNetworkCost network_;
};

TEST_F(VelmoRunCoordinatorTest, TheRunIsRecordedWhenItEndsNotWhenItStarts) {
  launcher_.enqueue({.exitAfter = minutes(10)});
  start();
  std::vector<RunActivity> seen;
  const auto watching = coordinator_->activity().subscribe(
      [&seen](const RunActivity& activity) { seen.push_back(activity); });
  clock_.advance(minutes(5));
  EXPECT_EQ(runCount(), std::nullopt);
  EXPECT_EQ(seen.back(), (RunActivity{.inProgress = true, .startedAt = kStart + seconds(1)}));
  clock_.advance(minutes(6));
  EXPECT_EQ(runCount(), 1);
  EXPECT_EQ(lastRun(), kStart + seconds(1) + minutes(10));
  EXPECT_TRUE(logged("Scheduled Velmo Run #1 finished in 10 minutes."));
  // The next run is planned from the end of this one.
  EXPECT_EQ(coordinator_->nextRunDate(), kStart + seconds(1) + minutes(10) + hours(4));
  EXPECT_EQ(seen.back(), (RunActivity{.nextRunDate = coordinator_->nextRunDate(),
                                      .lastRunDate = lastRun(),
                                      .runCount = 1}));
}

// RunSplay on the virtual clock: this machine's offset is 2,866 s of 3,600
// (the first 8 bytes of its id's SHA-256, big-endian, modulo the splay).
TEST_F(VelmoRunCoordinatorTest, TheSplayedOpeningStaysInsideTheWindowAndUsersNeverWait) {
  files_.addFile("/sandbox/etc/machine-id", "5f2a9c0e7b3d4e1fa8c6d2b9e0f1a3c4\n");
  defaults_.set("RunSplay", 3600.0);
  allowOnlyWednesdayNight();
  start();
  clock_.advance(seconds(2867) - milliseconds(1));
  EXPECT_EQ(debugCount("Submitting Velmo Run request to RunGate."), 0u);
  clock_.advance(milliseconds(1));
  EXPECT_EQ(debugCount("Submitting Velmo Run request to RunGate."), 1u);
  // 47 min 46 s into Wednesday's 02:00-03:00 window.
  EXPECT_EQ(coordinator_->nextRunDate(), kWednesday0200 + seconds(2866));
  int served = 0;
  requestRun(true, served);
  clock_.advance(milliseconds(1));
  EXPECT_EQ(served, 1);
}

// A stored count of the wrong type is no run counted: the first run is skipped.
TEST_F(VelmoRunCoordinatorTest, SkipFirstRunSkipsWhileNoRunWasCounted) {
  setManaged("com.marvenith.velmo-agent", {{"SkipFirstVelmoAgentRun", true}});
  state_.setValue(core::PlistValue("3"), PlistKey::updateTaskRunCount);
  start();
  clock_.advance(seconds(1));
  EXPECT_TRUE(logged("Configured to skip the first Velmo Run."));
  EXPECT_TRUE(launchedArguments().empty());
  EXPECT_EQ(lastRun(), kStart + seconds(1));
  // The skipped run counts as the first; the next one is real.
  EXPECT_EQ(runCount(), 1);
  clock_.advance(hours(4));
  EXPECT_EQ(launchedArguments(), (Calls{{"install", "marvenith-velmo"}}));
  EXPECT_TRUE(logged("Scheduled Velmo Run #2 started."));
}

TEST_F(VelmoRunCoordinatorTest, AStartOutsideTheWindowsRecordsNothingAndPlansTheNextWindow) {
  allowOnlyWednesdayNight();
  start();
  clock_.advance(seconds(1));
  EXPECT_TRUE(launchedArguments().empty());
  EXPECT_TRUE(logged("Current time is outside allowed Velmo Run windows. Skipping scheduled run."));
  EXPECT_FALSE(files_.fileExists(paths_.agentStateFile()));
  // The first allowed moment after now plus the interval.
  EXPECT_EQ(coordinator_->nextRunDate(), kWednesday0200);
  EXPECT_EQ(debugCount("Global Velmo Run windows deferred the next run from "), 1u);

  clock_.advance(kWednesday0200 - clock_.now());
  EXPECT_EQ(launchedArguments(), (Calls{{"install", "marvenith-velmo"}}));
  EXPECT_EQ(runCount(), 1);
}

class UserInitiatedOutsideWindows : public VelmoRunCoordinatorTest,
                                    public ::testing::WithParamInterface<bool> {};

TEST_P(UserInitiatedOutsideWindows, RunsOnlyWhenTheOverrideAllowsIt) {
  const bool allowed = GetParam();
  allowOnlyWednesdayNight();
  defaults_.set("AllowUserInitiatedOutsideWindows", allowed);
  start();
  clock_.advance(seconds(1));  // The scheduled first run is refused.
  ASSERT_TRUE(launchedArguments().empty());

  int served = 0;
  requestRun(true, served);
  clock_.advance(seconds(1));
  EXPECT_EQ(served, 1);
  if (allowed) {
    EXPECT_EQ(launchedArguments(), (Calls{{"install", "marvenith-velmo", "--running-first"}}));
    EXPECT_EQ(runCount(), 1);
  } else {
    EXPECT_TRUE(launchedArguments().empty());
    EXPECT_TRUE(logged("overrides are disabled. Skipping run."));
    EXPECT_EQ(runCount(), std::nullopt);
  }
  // A refused run replans all the same.
  EXPECT_TRUE(coordinator_->nextRunDate().has_value());
}

INSTANTIATE_TEST_SUITE_P(Override, UserInitiatedOutsideWindows, ::testing::Bool());

struct HeldCase {
  const char* name;
  const char* key;
  core::PlistValue value;
  std::function<void(platform::fake::FakePowerSource&, platform::fake::FakeNetworkCost&, bool held)>
      state;
  const char* reason;
};

void PrintTo(const HeldCase& c, std::ostream* os) { *os << c.name; }

class HeldRun : public VelmoRunCoordinatorTest, public ::testing::WithParamInterface<HeldCase> {
 protected:
  void setState(bool held) { GetParam().state(power_, network_, held); }
};

// The timer's run waits while a condition is unmet, a user's check doesn't,
// and the overdue run starts 5 s after the condition clears.
TEST_P(HeldRun, WaitsForTheConditionAndRunsOnceItClears) {
  const auto& c = GetParam();
  defaults_.set(c.key, c.value);
  setState(true);
  start();
  clock_.advance(seconds(1));
  EXPECT_TRUE(launchedArguments().empty());
  EXPECT_TRUE(logged(std::string("Scheduled Velmo Run not started: ") + c.reason));
  EXPECT_EQ(coordinator_->activity().value().heldBy, c.reason);
  EXPECT_TRUE(coordinator_->nextRunDate().has_value());

  int served = 0;
  requestRun(true, served);
  clock_.advance(seconds(1));
  EXPECT_EQ(launchedArguments(), (Calls{{"install", "marvenith-velmo", "--running-first"}}));

  setState(false);
  clock_.advance(seconds(4));
  EXPECT_EQ(launchedArguments().size(), 1u);
  clock_.advance(seconds(2));
  EXPECT_EQ(launchedArguments().size(), 2u);
  EXPECT_EQ(runCount(), 2);
  EXPECT_EQ(coordinator_->activity().value().heldBy, "");
}

INSTANTIATE_TEST_SUITE_P(
    Conditions, HeldRun,
    ::testing::Values(HeldCase{"OnBattery", "RunOnlyOnACPower", true,
                               [](auto& power, auto&, bool held) {
                                 power.set(
                                     platform::PowerState{.onBattery = held, .percent = 80.0});
                               },
                               "on battery (RunOnlyOnACPower)"},
                      HeldCase{"LowBattery", "MinimumBatteryPercent", std::int64_t{30},
                               [](auto& power, auto&, bool held) {
                                 power.set(platform::PowerState{.onBattery = true,
                                                                .percent = held ? 8.0 : 31.0});
                               },
                               "battery at 8%, below 30% (MinimumBatteryPercent)"},
                      HeldCase{"Metered", "RunOnlyOnUnmeteredNetwork", true,
                               [](auto&, auto& network, bool held) { network.set(held); },
                               "on a metered network (RunOnlyOnUnmeteredNetwork)"}),
    [](const auto& info) { return std::string(info.param.name); });

class SleepOrPowerOff : public VelmoRunCoordinatorTest,
                        public ::testing::WithParamInterface<WorkspaceEvent> {};

TEST_P(SleepOrPowerOff, ClearsTheTimer) {
  start();
  clock_.advance(seconds(1));
  ASSERT_TRUE(coordinator_->nextRunDate().has_value());
  workspace_.send(GetParam());
  EXPECT_EQ(coordinator_->nextRunDate(), std::nullopt);
  clock_.advance(hours(10));
  EXPECT_EQ(launchedArguments().size(), 1u);
  EXPECT_EQ(clock_.pendingTimers(), 0u);
}

INSTANTIATE_TEST_SUITE_P(Events, SleepOrPowerOff,
                         ::testing::Values(WorkspaceEvent::willSleep,
                                           WorkspaceEvent::willPowerOff));

// A wake, and a power-off that was cancelled, replan from the last run.
class WakeOrCancelledPowerOff : public VelmoRunCoordinatorTest,
                                public ::testing::WithParamInterface<WorkspaceEvent> {};

TEST_P(WakeOrCancelledPowerOff, ReplansFiveSecondsLater) {
  start();
  clock_.advance(seconds(1));
  workspace_.send(GetParam() == WorkspaceEvent::didWake ? WorkspaceEvent::willSleep
                                                        : WorkspaceEvent::willPowerOff);
  clock_.advance(hours(1));
  workspace_.send(GetParam());
  clock_.advance(seconds(5));
  EXPECT_EQ(coordinator_->nextRunDate(), kStart + seconds(1) + hours(4));
}

INSTANTIATE_TEST_SUITE_P(Events, WakeOrCancelledPowerOff,
                         ::testing::Values(WorkspaceEvent::didWake,
                                           WorkspaceEvent::powerOffCancelled));

// The timer counts elapsed time; a step of the wall clock beyond a minute
// replans it, so that the run comes when the wall clock reads its date.
struct ClockStepCase {
  const char* name;
  platform::Duration step;
  // After the step: when the plan says, and whether the run has come by the
  // time the wall clock reads the first plan's date.
  bool planUnchanged;
  std::size_t launchesByThen;
};
void PrintTo(const ClockStepCase& c, std::ostream* os) { *os << c.name; }

class ClockStep : public VelmoRunCoordinatorTest,
                  public ::testing::WithParamInterface<ClockStepCase> {};

TEST_P(ClockStep, ReplansOnlyBeyondAMinute) {
  const ClockStepCase& c = GetParam();
  start();
  clock_.advance(seconds(1));
  const auto planned = *coordinator_->nextRunDate();
  ASSERT_EQ(planned, kStart + seconds(1) + hours(4));
  clock_.stepWallClock(c.step);
  clock_.runUntilIdle();
  if (c.planUnchanged) {
    EXPECT_EQ(coordinator_->nextRunDate(), planned);
  } else {
    // Set back: the last run lies ahead of the clock, so the plan starts now.
    EXPECT_EQ(coordinator_->nextRunDate(), clock_.now() + hours(4));
  }
  EXPECT_EQ(clock_.pendingTimers(), 1u);
  clock_.advance(std::max(planned - clock_.now(), platform::Duration::zero()) + milliseconds(1));
  EXPECT_EQ(launchedArguments().size(), c.launchesByThen);
}

INSTANTIATE_TEST_SUITE_P(
    Steps, ClockStep,
    ::testing::Values(ClockStepCase{"TwoHoursAhead", hours(2), true, 2},
                      ClockStepCase{"ThirtySecondsAheadIsNoStep", seconds(30), true, 1},
                      ClockStepCase{"TwoHoursBack", -hours(2), false, 2}),
    [](const ::testing::TestParamInfo<ClockStepCase>& info) { return info.param.name; });

TEST_F(VelmoRunCoordinatorTest, AStoppingAgentClearsTheTimerAndStartsNoRun) {
  core::AgentLifecycle lifecycle;
  auto withLifecycle = collaborators();
  withLifecycle.lifecycle = &lifecycle;
  coordinator_ = VelmoRunCoordinator::make(withLifecycle);
  clock_.advance(seconds(1));
  ASSERT_TRUE(coordinator_->nextRunDate().has_value());
  lifecycle.advance(core::LifePhase::draining);
  int served = 0;
  requestRun(true, served);
  clock_.advance(hours(10));
  EXPECT_EQ(served, 1);
  EXPECT_EQ(coordinator_->nextRunDate(), std::nullopt);
  EXPECT_EQ(launchedArguments().size(), 1u);
  EXPECT_EQ(clock_.pendingTimers(), 0u) << "not even the gate's watchdog";
}

TEST_F(VelmoRunCoordinatorTest, AWakeWithinTheIntervalArmsTheRestOfIt) {
  start();
  clock_.advance(seconds(1));
  for (int cycle = 0; cycle < 3; ++cycle) {
    workspace_.send(WorkspaceEvent::willSleep);
    clock_.advance(minutes(30));
    workspace_.send(WorkspaceEvent::didWake);
    clock_.advance(seconds(5));
    // Never two timers: the replan replaced whatever was armed.
    EXPECT_EQ(clock_.pendingTimers(), 1u);
  }
  EXPECT_EQ(coordinator_->nextRunDate(), kStart + seconds(1) + hours(4));
  EXPECT_TRUE(logged("Scheduled next Velmo Run after wake at "));
  EXPECT_EQ(debugCount("Last Velmo Run was 1 hour, 30 minutes, 15 seconds ago."), 1u);
  clock_.advance(kStart + seconds(1) + hours(4) - clock_.now());
  EXPECT_EQ(launchedArguments().size(), 2u);
}

class DamagedStateFile : public VelmoRunCoordinatorTest,
                         public ::testing::WithParamInterface<const char*> {};

TEST_P(DamagedStateFile, CountsAsNoRun) {
  files_.addFile(paths_.agentStateFile(), GetParam());
  launcher_.enqueue({.exitAfter = hours(1)});
  start();
  clock_.advance(seconds(30));  // The first run is under way, nothing recorded yet.
  EXPECT_TRUE(logged("Scheduled Velmo Run #1 started."));
  // A wake finds no last run and plans from now.
  workspace_.send(WorkspaceEvent::didWake);
  clock_.advance(seconds(5));
  EXPECT_EQ(coordinator_->nextRunDate(), clock_.now() + hours(4));
  clock_.advance(hours(1));
  EXPECT_EQ(runCount(), 1);
}

INSTANTIATE_TEST_SUITE_P(
    Contents, DamagedStateFile,
    ::testing::Values("", "not a property list",
                      "<?xml version=\"1.0\"?><plist version=\"1.0\"><dict>"
                      "<key>UpdateTaskRunCount</key><string>seven</string>"
                      "<key>LastUpdateTaskRun</key><integer>5</integer></dict></plist>"));

TEST_F(VelmoRunCoordinatorTest, ANegativeRunIntervalIsIgnoredForTheDefault) {
  defaults_.set("RunInterval", core::PlistValue(-60.5));
  start();
  EXPECT_EQ(coordinator_->timerInterval().count(), 14400.0);
  EXPECT_TRUE(logged("Ignoring RunInterval"));
  clock_.advance(seconds(1));
  EXPECT_EQ(coordinator_->nextRunDate(), clock_.now() + hours(4));
}

// At most three comparisons at once, and the job after the last one, are
// checked against real processes end to end (tests/e2e/reconcile_test.sh).

struct CompareCase {
  const char* name;
  std::optional<int> exitStatus;  // None: the comparison outlives its limit.
  bool removed;
  const char* line;
};

class CompareResult : public VelmoRunCoordinatorTest,
                      public ::testing::WithParamInterface<CompareCase> {};

TEST_P(CompareResult, OnlyNothingDueTakesTheItemAndItsDeferrals) {
  auto listed = std::make_shared<FakeListedItems>();
  listed->items = {item("a"), item("b")};
  if (GetParam().exitStatus) {
    launcher_.enqueue({.exitAfter = seconds(0), .exitStatus = *GetParam().exitStatus});
  } else {
    launcher_.enqueue({.exitAfterTerminate = seconds(0)});
  }
  launcher_.enqueue({.exitAfter = seconds(0), .exitStatus = 57});
  start();
  coordinator_->setUIController(listed);
  clock_.advance(minutes(3));
  using Removals = std::vector<std::pair<std::string, double>>;
  const Removals expected = GetParam().removed ? Removals{{"a", 0.0}} : Removals{};
  EXPECT_EQ(listed->removals, expected);
  EXPECT_EQ(listed->deferralRemovals,
            GetParam().removed ? std::vector<std::string>{"a"} : std::vector<std::string>{});
  EXPECT_TRUE(logged(GetParam().line) || debugCount(GetParam().line) > 0) << GetParam().line;
  // The other comparison went on, and the job ran.
  EXPECT_EQ(launcher_.launches().back().arguments,
            (std::vector<std::string>{"install", "marvenith-velmo"}));
}

INSTANTIATE_TEST_SUITE_P(
    Statuses, CompareResult,
    ::testing::Values(
        CompareCase{"NothingDue", 0, true,
                    "Velmo compare completed successfully for a, scheduling removal from list."},
        CompareCase{"TimedOut", std::nullopt, false,
                    "Velmo compare timed out for a; leaving item in list."}),
    [](const auto& info) { return std::string(info.param.name); });

struct PolicyCase {
  const char* name;
  core::PlistDictionary before;
  core::PlistDictionary after;
  Calls tool;
  std::vector<std::string> lines;
};

class PolicyChange : public VelmoRunCoordinatorTest,
                     public ::testing::WithParamInterface<PolicyCase> {};

TEST_P(PolicyChange, AppliesTheNewPolicyStepByStep) {
  for (const auto& [key, value] : GetParam().before) defaults_.set(key, value);
  start();
  clock_.advance(seconds(1));  // The first run.
  const std::size_t runs = launcher_.launches().size();
  const std::string before = capture_.standardOutput();
  for (const auto& [key, value] : GetParam().after) defaults_.set(key, value);
  const auto fresh = policy::VelmoRunConfig::read(defaults_);
  coordinator_->handlePolicyChange(fresh);
  clock_.runUntilIdle();
  Calls tool;
  for (std::size_t i = runs; i < launcher_.launches().size(); ++i) {
    tool.push_back(launcher_.launches()[i].arguments);
  }
  EXPECT_EQ(tool, GetParam().tool);
  const std::string out = capture_.standardOutput().substr(before.size());
  for (const auto& line : GetParam().lines) EXPECT_NE(out.find(line), std::string::npos) << out;
  if (GetParam().lines.empty()) {
    EXPECT_EQ(out, "");
  }
  EXPECT_EQ(coordinator_->config(), fresh);
  // Each key's line carries the key and both values as fields of its own.
  for (const auto& entry : capture_.unified().entries()) {
    if (!entry.message.starts_with("Policy ")) continue;
    ASSERT_EQ(entry.fields.size(), 3u) << entry.message;
    EXPECT_EQ(entry.fields[0].first, "VELMO_POLICY_KEY");
    EXPECT_TRUE(entry.message.starts_with("Policy " + entry.fields[0].second + ": "));
    EXPECT_EQ(entry.fields[1].first, "VELMO_POLICY_OLD");
    EXPECT_EQ(entry.fields[2].first, "VELMO_POLICY_NEW");
  }
}

const core::PlistArray kAB{"a", "b"};

INSTANTIATE_TEST_SUITE_P(
    Steps, PolicyChange,
    // Interval changes and removed IDs are checked end to end (reconcile_test.sh).
    ::testing::Values(
        PolicyCase{"IntervalGoneWhileAtDefault", {{"RunInterval", 14400}}, {}, {}, {}},
        PolicyCase{
            "AddedToBothLists",
            {},
            {{"UpdateOnly", kAB}, {"InstallOrUpdate", core::PlistArray{"a"}}},
            {{"install", "a"}, {"install", "b", "--update-only"}},
            {"New install or update items detected: a", "New update-only items detected: b"}}),
    [](const auto& info) { return std::string(info.param.name); });

}  // namespace
}  // namespace velmo::agent::run
