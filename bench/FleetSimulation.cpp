// A fleet's run starts over one week, planned by the agent's own planner for
// each simulated machine: its own machine id, a random last run in the week
// before, a shared allow window (Tuesday and Thursday 02:00-03:00 UTC) and a
// 4-hour interval. Prints the busiest minute, the peak and the 99th percentile
// of run starts per window minute, without and with RunSplay, and writes the
// per-minute series as CSV.
// Usage: velmo_fleet_simulation [machines (10000)] [splay seconds (3600)] [csv file]
#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <random>
#include <string>
#include <vector>

#include "agent/run/RunPlanner.h"
#include "agent/run/RunSplay.h"
#include "core/time/VelmoFormatters.h"
#include "core/time/VelmoWindowPolicy.h"

namespace {

using namespace velmo;
using std::chrono::minutes;

// Monday 2026-11-23 00:00 UTC.
const platform::TimePoint kStart{std::chrono::seconds(1795392000)};
constexpr int kMinutes = 7 * 24 * 60;

std::string randomMachineId(std::mt19937_64& random) {
  static const char kHex[] = "0123456789abcdef";
  std::string id;
  for (int i = 0; i < 32; ++i) id += kHex[random() % 16];
  return id;
}

// Run starts per minute of the week.
std::vector<int> simulate(int machines, double splaySeconds, std::uint64_t seed) {
  const core::VelmoTimeWindow window{
      .days = {core::Weekday::tue, core::Weekday::thu}, .start = {2, 0}, .end = {2, 59}};
  const core::VelmoWindowPolicy policy({window}, {}, "UTC");
  std::mt19937_64 random(seed);
  std::vector<int> perMinute(kMinutes, 0);
  for (int machine = 0; machine < machines; ++machine) {
    const auto id = randomMachineId(random);
    const agent::run::RunPlanner planner(policy, core::TimeInterval(14400.0),
                                         agent::run::RunSplay::offset(id, splaySeconds));
    const auto lastRun = kStart - std::chrono::seconds(random() % (7 * 86400));
    auto next = planner.fromLastRun(lastRun, kStart).start;
    while (next < kStart + minutes(kMinutes)) {
      ++perMinute[static_cast<std::size_t>(
          std::chrono::duration_cast<minutes>(next - kStart).count())];
      // A run takes no time here; the next one is planned from its start.
      next = planner.afterRun(next).start;
    }
  }
  return perMinute;
}

struct Figures {
  int peak = 0;
  int busiestMinute = 0;
  int p99 = 0;
  int windowMinutes = 0;
};

// Over the minutes the window holds: what the servers see while runs may start.
Figures figures(const std::vector<int>& perMinute) {
  Figures result;
  std::vector<int> inWindow;
  for (int minute = 0; minute < kMinutes; ++minute) {
    const int day = minute / 1440;  // 0 is Monday.
    const int ofDay = minute % 1440;
    if ((day == 1 || day == 3) && ofDay >= 120 && ofDay < 180)
      inWindow.push_back(perMinute[minute]);
    if (perMinute[minute] > result.peak) {
      result.peak = perMinute[minute];
      result.busiestMinute = minute;
    }
  }
  std::sort(inWindow.begin(), inWindow.end());
  result.windowMinutes = static_cast<int>(inWindow.size());
  if (!inWindow.empty()) result.p99 = inWindow[inWindow.size() * 99 / 100];
  return result;
}

}  // namespace

int main(int argc, char** argv) {
  const int machines = argc > 1 ? std::max(1, std::atoi(argv[1])) : 10'000;
  const double splay = argc > 2 ? std::atof(argv[2]) : 3600.0;
  const std::string csv = argc > 3 ? argv[3] : "fleet.csv";
  const auto without = simulate(machines, 0, 2026);
  const auto with = simulate(machines, splay, 2026);
  // Each machine runs once in each opening; an even spread fills the window's 60 minutes.
  const double even = machines / 60.0;
  std::printf("%d machines, Tue and Thu 02:00-03:00 UTC, every 4 hours, one week\n", machines);
  std::printf("even spread: %.1f run starts a minute\n", even);
  for (const auto& [name, series] : {std::pair{"RunSplay 0", &without}, {"RunSplay on", &with}}) {
    const auto f = figures(*series);
    const auto busiest = kStart + minutes(f.busiestMinute);
    std::printf("%-12s peak %5d (%.2fx even) at %s, 99th percentile %5d, runs %d\n", name, f.peak,
                f.peak / even, core::VelmoFormatters::iso8601(busiest).c_str(), f.p99, [&] {
                  int total = 0;
                  for (int count : *series) total += count;
                  return total;
                }());
  }
  std::ofstream out(csv);
  out << "minute,time,runsplay0,runsplay" << static_cast<long>(splay) << "\n";
  for (int minute = 0; minute < kMinutes; ++minute) {
    out << minute << "," << core::VelmoFormatters::iso8601(kStart + minutes(minute)) << ","
        << without[minute] << "," << with[minute] << "\n";
  }
  std::printf("per-minute series: %s\n", csv.c_str());
  return 0;
}
