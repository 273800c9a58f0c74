// What `explain` says the next run is must be what the coordinator's timer
// then plans: random policies, last runs and moments, in zones with clock
// changes, on the virtual clock.
#include <gtest/gtest.h>

#include <cstdlib>
#include <random>

#include <nlohmann/json.hpp>

#include "agent/console/AgentFacts.h"
#include "agent/console/ExplainCommand.h"
#include "agent/run/VelmoRunCoordinator.h"
#include "backends/fake/FakeAgentStatusReader.h"
#include "core/time/Iso8601DateFormatter.h"
#include "tests/support/AgentFakes.h"
#include "tests/support/RandomWindowPolicies.h"

namespace velmo::agent::console {
namespace {

// One machine: its own fakes, so nothing carries over between cases.
struct Machine : testing::AgentFakes {
  using AgentFakes::clock_, AgentFakes::context_, AgentFakes::defaults_, AgentFakes::distributed_,
      AgentFakes::files_, AgentFakes::paths_, AgentFakes::runner_, AgentFakes::stores_,
      AgentFakes::workspace_;
  std::unique_ptr<mdm::ManagedPrefs> prefs = makePrefs();
  run::InventoryUpdater inventory{launcher_, clock_, "/usr/local/bin/jamf"};
  platform::fake::FakeAgentStatusReader noAgent;
};

int caseCount() {
  if (const char* text = std::getenv("VELMO_EXPLAIN_DIFFERENTIAL_CASES")) {
    return std::max(1, std::atoi(text));
  }
#ifdef NDEBUG
  return 10'000;
#else
  // The sanitizers' build is some fifty times slower: still hundreds of
  // random machines, within the suite's time limit on a busy machine.
  return 200;
#endif
}

TEST(ExplainDifferential, FirstPlannedRunIsTheCoordinatorsPlan) {
  testing::Generator generate(20261124);
  std::mt19937_64 random(42);
  const auto pick = [&](std::int64_t low, std::int64_t high) {
    return std::uniform_int_distribution<std::int64_t>(low, high)(random);
  };
  int failures = 0;
  int deferred = 0;
  const int kCases = caseCount();
  for (int i = 0; i < kCases && failures < 5; ++i) {
    Machine machine;
    const auto& zone = generate.zone();
    // Whole seconds: the state file keeps no fraction, and both sides read it.
    const auto now = std::chrono::floor<std::chrono::seconds>(generate.moment(zone));
    machine.clock_.stepWallClock(now - machine.clock_.now());
    auto& defaults = machine.defaults_;
    defaults.set("GlobalAllowWindows", core::VelmoTimeWindow::toPlistArray(generate.windows(3)));
    defaults.set("GlobalBlackoutWindows", core::VelmoTimeWindow::toPlistArray(generate.windows(2)));
    if (pick(0, 3) == 0) defaults.set("EnableVelmoTuesdayWindow", true);
    switch (pick(0, 3)) {
      case 0:
        break;
      case 1:
        defaults.set("RunInterval", core::PlistValue(std::int64_t{pick(60, 7 * 86400)}));
        break;
      case 2:
        defaults.set("RunInterval", core::PlistValue(static_cast<double>(pick(-10, 0))));
        break;
      default:
        defaults.set("RunInterval", std::to_string(pick(600, 86400)));
    }
    run::PlistManager state(machine.files_, machine.paths_.agentStateFile());
    if (pick(0, 4) != 0) {
      const auto last = now - std::chrono::seconds(pick(-86400, 3 * 86400));
      state.setValue(core::PlistValue(core::PlistDate{last}), run::PlistKey::lastUpdateTaskRun);
    }

    const auto coordinator = run::VelmoRunCoordinator::make(
        {.mainExecutor = machine.context_.get_executor(),
         .clock = machine.clock_,
         .files = machine.files_,
         .paths = machine.paths_,
         .userDefaults = machine.defaults_,
         .managedPrefs = *machine.prefs,
         .distributedCenter = machine.distributed_,
         .workspaceEvents = machine.workspace_,
         .runner = machine.runner_,
         .inventory = machine.inventory,
         .currentTimeZone = [&zone] { return std::string(zone.id); }});
    coordinator->rescheduleFromLastRun(std::nullopt);
    // A plan for now or earlier runs at once and arms no timer.
    const auto planned = coordinator->nextRunDate().value_or(now);

    const auto facts = AgentFacts::gather({machine.paths_, machine.files_, machine.stores_,
                                           machine.defaults_, machine.clock_, machine.noAgent,
                                           [&zone] { return std::string(zone.id); }});
    const auto explanation = ExplainCommand::explain(facts, now, 62, 1);
    const auto explained =
        explanation.scheduledRuns.empty() ? now : explanation.scheduledRuns.front().at;
    if (explained != planned) {
      ++failures;
      ADD_FAILURE() << "case " << i << " in " << zone.id << " at "
                    << core::Iso8601DateFormatter::string(now) << ": explain "
                    << core::Iso8601DateFormatter::string(explained) << ", coordinator "
                    << core::Iso8601DateFormatter::string(planned);
    }
    if (planned > now + std::chrono::days(1)) ++deferred;
  }
  // The windows must often push runs out, or the cases say little.
  EXPECT_GT(deferred, kCases / 10);
}

}  // namespace
}  // namespace velmo::agent::console
