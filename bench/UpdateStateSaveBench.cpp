// Saving the update state file with 10,000 items: encoding, the plain write
// of the temporary file and the rename, as the agent does it on its file
// strand. Also the encoding alone, and the decoding that a start does.
#include <benchmark/benchmark.h>

#include <filesystem>

#include <asio/io_context.hpp>

#include "agent/items/UIController.h"
#include "backends/fake/FakeDistributedNotificationCenter.h"
#include "backends/fake/FakeProcessLauncher.h"
#include "backends/fake/FakeUserDefaults.h"
#include "backends/fake/VirtualClock.h"
#include "backends/linux/PosixFileManager.h"

namespace {

using namespace velmo;

std::vector<core::UpdateItem> makeItems(int count) {
  std::vector<core::UpdateItem> items;
  for (int i = 0; i < count; ++i) {
    const std::string id = "com.example.app-" + std::to_string(i);
    items.emplace_back(id, "Example App " + std::to_string(i), "12.4." + std::to_string(i), "12.3",
                       "/Applications/Example App " + std::to_string(i) + ".app", i % 2 == 0, false,
                       i % 3 == 0 ? std::optional<bool>(true) : std::nullopt);
  }
  return items;
}

void BM_SaveUpdateState(benchmark::State& state) {
  const auto root = std::filesystem::temp_directory_path() / "velmo-save-bench";
  std::filesystem::remove_all(root);
  const platform::Paths paths(root);
  std::filesystem::create_directories(paths.updateStateFile().parent_path());
  platform::linux::PosixFileManager files;
  (void)files.writeFile(paths.updateStateFile(), *core::UpdateItem::prettyJSONText(
                                                     makeItems(static_cast<int>(state.range(0)))));

  asio::io_context context;
  platform::fake::VirtualClock clock(context);
  platform::fake::FakeDistributedNotificationCenter distributed(context.get_executor(), 0);
  core::NotificationCenter notifications;
  platform::fake::FakeUserDefaults defaults;
  platform::fake::FakeProcessLauncher launcher(clock);
  agent::run::VelmoRunner runner(launcher, clock, "/tool/velmo");
  agent::items::VelmoAgentQueue queue({context.get_executor(), clock, defaults, runner});
  core::PostLog postLog(clock, context.get_executor());
  auto controller =
      agent::items::UIController::make({context.get_executor(), context.get_executor(), clock,
                                        files, paths, distributed, notifications, queue, postLog},
                                       nullptr);
  context.run();  // The load of the items.
  if (controller->updateItems().size() != static_cast<std::size_t>(state.range(0))) {
    state.SkipWithError("load failed");
    return;
  }
  for (auto _ : state) {
    controller->saveState(true);
    context.restart();
    context.run();
  }
  state.counters["bytes"] =
      static_cast<double>(std::filesystem::file_size(paths.updateStateFile()));
  controller.reset();
  std::filesystem::remove_all(root);
}
BENCHMARK(BM_SaveUpdateState)->Arg(1000)->Unit(benchmark::kMillisecond);

void BM_EncodeItems(benchmark::State& state) {
  const auto items = makeItems(static_cast<int>(state.range(0)));
  for (auto _ : state) benchmark::DoNotOptimize(core::UpdateItem::prettyJSONText(items));
}
BENCHMARK(BM_EncodeItems)->Arg(10000)->Unit(benchmark::kMillisecond);

void BM_DecodeItems(benchmark::State& state) {
  const auto text = *core::UpdateItem::prettyJSONText(makeItems(static_cast<int>(state.range(0))));
  for (auto _ : state) benchmark::DoNotOptimize(core::UpdateItem::arrayFromJSONText(text));
}
BENCHMARK(BM_DecodeItems)->Arg(10000)->Unit(benchmark::kMillisecond);

}  // namespace

BENCHMARK_MAIN();
