// What `velmo-agent lint` costs on a large profile: 1,000 keys, most of them
// unknown (each compared with every known key for the nearest), the rest the
// agent's own with windows and ID lists. Target: under 50 ms.
#include <benchmark/benchmark.h>

#include "agent/console/PolicyLint.h"
#include "core/time/VelmoTimeWindow.h"

namespace {

using namespace velmo;

core::PlistDictionary largeProfile() {
  core::PlistDictionary values;
  for (int i = 0; i < 980; ++i) values["CustomSetting" + std::to_string(i)] = i;
  const core::VelmoTimeWindow allow{
      .days = {core::Weekday::mon, core::Weekday::wed}, .start = {12, 0}, .end = {13, 30}};
  const core::VelmoTimeWindow blackout{
      .days = {core::Weekday::wed}, .start = {12, 30}, .end = {12, 59}};
  values["GlobalAllowWindows"] = core::VelmoTimeWindow::toPlistArray({allow, allow, allow});
  values["GlobalBlackoutWindows"] = core::VelmoTimeWindow::toPlistArray({blackout});
  core::PlistArray ids;
  for (int i = 0; i < 200; ++i) ids.emplace_back("app-" + std::to_string(i));
  values["InstallOrUpdate"] = ids;
  values["UpdateOnly"] = ids;
  values["RunInterval"] = 3600;
  values["UpdateMAS"] = "true";
  for (int i = 0; i < 14; ++i) values["RunIntreval" + std::to_string(i)] = 1;
  return values;  // 980 + 6 + 14 = 1,000 keys
}

void BM_Lint1000Keys(benchmark::State& state) {
  const auto values = largeProfile();
  const platform::TimePoint now{std::chrono::seconds(1773151509)};
  for (auto _ : state) {
    benchmark::DoNotOptimize(agent::console::PolicyLint::lintValues(
        "profile.plist", "com.marvenith.velmo-agent", values, now, "Europe/Berlin"));
  }
  state.counters["keys"] = static_cast<double>(values.size());
}
BENCHMARK(BM_Lint1000Keys)->Unit(benchmark::kMillisecond);

}  // namespace

BENCHMARK_MAIN();
