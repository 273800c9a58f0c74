// What the search for the next allowed moment costs at its worst: 60 days
// with nothing allowed, so every day is walked to its end. The scan judges
// all 86,400 candidate minutes; the fast search only each day's boundaries.
#include <benchmark/benchmark.h>

#include <chrono>

#include "core/time/VelmoWindowPolicy.h"

namespace {

using velmo::core::TimeOfDay;
using velmo::core::VelmoTimeWindow;
using velmo::core::VelmoWindowPolicy;
using velmo::core::Weekday;

// 2026-03-11T10:00:00Z, a Wednesday.
const velmo::core::TimePoint kAfter{std::chrono::seconds(1773223200)};
constexpr int kSearchDays = 60;

VelmoTimeWindow window(std::set<Weekday> days, TimeOfDay start, TimeOfDay end,
                       std::optional<std::set<std::int64_t>> weeks = std::nullopt) {
  VelmoTimeWindow result;
  result.days = std::move(days);
  result.weeksOfMonth = std::move(weeks);
  result.start = start;
  result.end = end;
  return result;
}

// An allow window with no days: nothing ever matches.
VelmoWindowPolicy nothingAllowed() {
  return VelmoWindowPolicy({window({}, {9, 0}, {17, 0})}, {}, "America/New_York");
}

// Week 6 Sundays only, none of them within the 60 days; plus a deny window,
// so each day has allow and deny boundaries to work through.
VelmoWindowPolicy beyondTheHorizon() {
  return VelmoWindowPolicy({window({Weekday::sun}, {22, 0}, {6, 0}, std::set<std::int64_t>{6}),
                            window({Weekday::mon, Weekday::tue}, {9, 0}, {17, 0})},
                           {window({Weekday::mon, Weekday::tue}, {0, 0}, {23, 59})},
                           "Europe/Berlin");
}

template <VelmoWindowPolicy (*Make)()>
void BM_NextAllowedRunDate(benchmark::State& state) {
  const auto policy = Make();
  for (auto _ : state) {
    benchmark::DoNotOptimize(policy.nextAllowedRunDate(kAfter, kSearchDays));
  }
}

template <VelmoWindowPolicy (*Make)()>
void BM_NextAllowedRunDateByScan(benchmark::State& state) {
  const auto policy = Make();
  for (auto _ : state) {
    benchmark::DoNotOptimize(policy.nextAllowedRunDateByScan(kAfter, kSearchDays));
  }
}

void BM_IsWithinAllowedWindow(benchmark::State& state) {
  const auto policy = beyondTheHorizon();
  for (auto _ : state) benchmark::DoNotOptimize(policy.isWithinAllowedWindow(kAfter));
}

BENCHMARK_TEMPLATE(BM_NextAllowedRunDate, nothingAllowed)->Unit(benchmark::kMicrosecond);
BENCHMARK_TEMPLATE(BM_NextAllowedRunDateByScan, nothingAllowed)->Unit(benchmark::kMicrosecond);
BENCHMARK_TEMPLATE(BM_NextAllowedRunDate, beyondTheHorizon)->Unit(benchmark::kMicrosecond);
BENCHMARK_TEMPLATE(BM_NextAllowedRunDateByScan, beyondTheHorizon)->Unit(benchmark::kMicrosecond);
BENCHMARK(BM_IsWithinAllowedWindow)->Unit(benchmark::kMicrosecond);

}  // namespace

BENCHMARK_MAIN();
