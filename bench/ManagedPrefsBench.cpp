// What a managed-preference question costs: a lookup in the snapshot and a
// conversion, with no file and no system call; and the same through the
// awaitable getter, which hops to the instance's strand and back.
#include <benchmark/benchmark.h>

#include <asio/co_spawn.hpp>
#include <asio/detached.hpp>
#include <asio/io_context.hpp>

#include "backends/fake/FakeDistributedNotificationCenter.h"
#include "backends/fake/FakePreferenceStores.h"
#include "backends/fake/FakeWorkspaceEvents.h"
#include "backends/fake/VirtualClock.h"
#include "core/notifications/NotificationCenter.h"
#include "mdm/ManagedPrefs.h"

namespace {

using velmo::core::PlistDictionary;
using velmo::mdm::ManagedDomain;

// A domain the size of a real profile: a few dozen keys.
PlistDictionary profile() {
  PlistDictionary values;
  for (int i = 0; i < 40; ++i) values.emplace("Key" + std::to_string(i), i);
  values.emplace("ActiveIntervals", "YES");
  values.emplace("DisableSelfUpdate", false);
  return values;
}

void BM_SnapshotBoolLookup(benchmark::State& state) {
  velmo::mdm::PreferenceSnapshot::Domains domains;
  domains.emplace("com.marvenith.velmo-agent", profile());
  const velmo::mdm::PreferenceSnapshot snapshot(std::move(domains));
  for (auto _ : state) {
    benchmark::DoNotOptimize(
        snapshot.boolValue("ActiveIntervals", ManagedDomain::velmoAgent, false));
  }
}
BENCHMARK(BM_SnapshotBoolLookup);

void BM_AwaitableBoolGetter(benchmark::State& state) {
  asio::io_context context;
  velmo::platform::fake::VirtualClock clock(context);
  velmo::platform::fake::FakePreferenceStores stores;
  stores.setManaged("com.marvenith.velmo-agent", profile());
  velmo::platform::fake::FakeDistributedNotificationCenter distributed(context.get_executor(), 0);
  velmo::core::NotificationCenter notifications;
  velmo::platform::fake::FakeWorkspaceEvents workspace;
  velmo::mdm::ManagedPrefs prefs(
      {context.get_executor(), clock, stores, distributed, notifications, workspace});
  for (auto _ : state) {
    asio::co_spawn(
        context,
        [&]() -> asio::awaitable<void> {
          benchmark::DoNotOptimize(
              co_await prefs.boolValue("ActiveIntervals", ManagedDomain::velmoAgent, false));
        },
        asio::detached);
    context.restart();
    context.run();
  }
}
BENCHMARK(BM_AwaitableBoolGetter);

}  // namespace

BENCHMARK_MAIN();
