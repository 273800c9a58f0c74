// What `velmo-agent explain` costs over 60 days once the files are read: the
// planned runs, every stretch with its reason, the week picture and the
// command lines, as JSON and as text. The policy is the README's example
// (Mon and Wed 12:00-13:30 in Europe/Berlin) with a Wednesday blackout, a
// month-scoped window and a 4-hour interval. Target: under 5 ms.
#include <benchmark/benchmark.h>

#include <sstream>

#include "agent/console/AgentFacts.h"
#include "agent/console/ExplainCommand.h"
#include "tests/support/ConsoleMachine.h"

namespace {

using namespace velmo;
using core::VelmoTimeWindow;
using core::Weekday;

struct Machine : testing::ConsoleMachine {
  Machine() {
    timeZone = "Europe/Berlin";
    const VelmoTimeWindow allow{
        .days = {Weekday::mon, Weekday::wed}, .start = {12, 0}, .end = {13, 30}};
    const VelmoTimeWindow monthly{.days = {Weekday::sat},
                                  .weeksOfMonth = std::set<std::int64_t>{1, 3},
                                  .start = {2, 0},
                                  .end = {5, 0}};
    const VelmoTimeWindow blackout{.days = {Weekday::wed}, .start = {12, 30}, .end = {12, 59}};
    defaults.set("GlobalAllowWindows", VelmoTimeWindow::toPlistArray({allow, monthly}));
    defaults.set("GlobalBlackoutWindows", VelmoTimeWindow::toPlistArray({blackout}));
    defaults.set("InstallOrUpdate", core::PlistArray{"firefox", "zoom"});
  }
};

agent::console::AgentFacts facts(Machine& machine) {
  return agent::console::AgentFacts::gather(machine.inputs());
}
void BM_Explain60DaysJSON(benchmark::State& state) {
  Machine machine;
  const auto read = facts(machine);
  for (auto _ : state) {
    const auto explanation = agent::console::ExplainCommand::explain(read, read.now, 60);
    benchmark::DoNotOptimize(
        agent::console::ExplainCommand::json(read, explanation, "velmo").dump());
  }
}
BENCHMARK(BM_Explain60DaysJSON)->Unit(benchmark::kMillisecond);

void BM_Explain60DaysText(benchmark::State& state) {
  Machine machine;
  const auto read = facts(machine);
  const agent::console::ConsoleText text(true);
  for (auto _ : state) {
    std::ostringstream out;
    const auto explanation = agent::console::ExplainCommand::explain(read, read.now, 60);
    agent::console::ExplainCommand::printText(read, explanation, "velmo", text, out);
    benchmark::DoNotOptimize(out.str());
  }
}
BENCHMARK(BM_Explain60DaysText)->Unit(benchmark::kMillisecond);

}  // namespace

BENCHMARK_MAIN();
