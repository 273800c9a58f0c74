// What `velmo-agent lint` costs on a large profile: 1,000 keys, most of them
// unknown (each compared with every known key for the nearest), the rest the
// agent's own with windows and ID lists. Target: under 50 ms.
#include <benchmark/benchmark.h>

#include "agent/console/PolicyFileLint.h"
#include "agent/console/PolicyLint.h"
#include "backends/fake/FakeFileManager.h"
#include "core/time/VelmoTimeWindow.h"
#include "core/values/PropertyList.h"

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

// The same keys as an administrator ships them: one payload of a configuration
// profile in XML, read from its bytes (the guard, the parse, the payloads).
void BM_LintProfile1000Keys(benchmark::State& state) {
  auto payload = largeProfile();
  payload["PayloadType"] = "com.marvenith.velmo-agent";
  payload["PayloadIdentifier"] = "com.example.velmo.agent";
  payload["PayloadUUID"] = "6B3E7B8C-1C2D-4E5F-8A9B-0C1D2E3F4A5B";
  payload["PayloadVersion"] = 1;
  const core::PlistDictionary profile{{"PayloadContent", core::PlistArray{payload}},
                                      {"PayloadDisplayName", "Velmo"},
                                      {"PayloadIdentifier", "com.example.velmo"},
                                      {"PayloadType", "Configuration"},
                                      {"PayloadUUID", "0A1B2C3D-4E5F-4A6B-8C7D-9E0F1A2B3C4D"},
                                      {"PayloadVersion", 1}};
  platform::fake::FakeFileManager files;
  const std::string bytes = *core::PropertyList::xml(core::PlistValue(profile));
  files.addFile("/profiles/velmo.mobileconfig", bytes);
  const platform::TimePoint now{std::chrono::seconds(1773151509)};
  for (auto _ : state) {
    benchmark::DoNotOptimize(agent::console::PolicyFileLint::lintFile(
        files, "/profiles/velmo.mobileconfig", now, "Europe/Berlin"));
  }
  state.counters["bytes"] = static_cast<double>(bytes.size());
}
BENCHMARK(BM_LintProfile1000Keys)->Unit(benchmark::kMillisecond);

}  // namespace

BENCHMARK_MAIN();
