// Truncating a 2 GB log (sparse, with 8 MB of lines at its end) to 5 MB, as
// the maintenance cycle does it, against `tail -c 5242880 log > /dev/null` on
// the same file, both timed from start to end with the log made afresh
// outside the timing. Targets: memory growth at most 16 MB, and at most twice
// the time of tail. Counters: the process's peak resident memory during the
// truncation (the peak is reset just before it), and the growth over the
// resident memory before it.
#include <benchmark/benchmark.h>
#include <fcntl.h>
#include <malloc.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <filesystem>
#include <fstream>
#include <string>

#include "agent/maintenance/LogTruncator.h"
#include "backends/linux/PosixFileManager.h"

namespace {

namespace fs = std::filesystem;
using namespace velmo;

constexpr off_t kLogSize = off_t{2} << 30;
constexpr std::size_t kWrittenTail = 8 << 20;
// The tail is written a chunk at a time, so the harness itself holds only this
// much and the peak counter sees mostly the truncation.
constexpr std::size_t kChunk = 64 << 10;

fs::path logPath() { return fs::temp_directory_path() / "velmo-truncation-bench.log"; }

// 100-byte lines; the chunk is a whole number of them.
const std::string& chunkOfLines() {
  static const std::string chunk = [] {
    std::string line(99, 'x');
    line += '\n';
    std::string text;
    text.reserve(kChunk);
    while (text.size() < kChunk) text += line;
    text.resize(kChunk / line.size() * line.size());
    return text;
  }();
  return chunk;
}

void makeSparseLog() {
  const int fd = ::open(logPath().c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0644);
  if (fd < 0 || ::ftruncate(fd, kLogSize - static_cast<off_t>(kWrittenTail)) != 0) std::abort();
  const std::string& chunk = chunkOfLines();
  for (off_t at = kLogSize - static_cast<off_t>(kWrittenTail); at < kLogSize;) {
    const auto length = std::min<off_t>(static_cast<off_t>(chunk.size()), kLogSize - at);
    if (::pwrite(fd, chunk.data(), static_cast<std::size_t>(length), at) != length) std::abort();
    at += length;
  }
  ::close(fd);
}

// A field of /proc/self/status, in kB.
long statusKilobytes(const std::string& field) {
  std::ifstream status("/proc/self/status");
  for (std::string line; std::getline(status, line);) {
    if (line.rfind(field + ":", 0) == 0) return std::stol(line.substr(field.size() + 1));
  }
  return -1;
}

void resetPeakMemory() { std::ofstream("/proc/self/clear_refs") << "5"; }

void BM_TruncateTwoGigabyteLog(benchmark::State& state) {
  platform::linux::PosixFileManager files;
  const agent::maintenance::LogTruncator truncator(files, logPath(),
                                                   core::CustomLogger("MaintenanceBench"));
  long peak = 0;
  long growth = 0;
  for (auto _ : state) {
    state.PauseTiming();
    makeSparseLog();
    // Freed heap goes back first, so the copy the truncation makes counts in full.
    ::malloc_trim(0);
    const long before = statusKilobytes("VmRSS");
    resetPeakMemory();
    state.ResumeTiming();
    truncator.truncateLogFile(5);
    state.PauseTiming();
    peak = std::max(peak, statusKilobytes("VmHWM"));
    growth = std::max(growth, statusKilobytes("VmHWM") - before);
    if (fs::file_size(logPath()) >= (5u << 20)) std::abort();
    state.ResumeTiming();
  }
  state.counters["peak_rss_MB"] = static_cast<double>(peak) / 1024.0;
  state.counters["rss_growth_MB"] = static_cast<double>(growth) / 1024.0;
  fs::remove(logPath());
}
BENCHMARK(BM_TruncateTwoGigabyteLog)->Unit(benchmark::kMillisecond)->Iterations(20);

void BM_TailCommand(benchmark::State& state) {
  const fs::path output = "/dev/null";
  for (auto _ : state) {
    state.PauseTiming();
    makeSparseLog();
    state.ResumeTiming();
    posix_spawn_file_actions_t actions;
    posix_spawn_file_actions_init(&actions);
    posix_spawn_file_actions_addopen(&actions, STDOUT_FILENO, output.c_str(), O_WRONLY, 0);
    const std::string path = logPath().string();
    char* argv[] = {const_cast<char*>("tail"), const_cast<char*>("-c"),
                    const_cast<char*>("5242880"), const_cast<char*>(path.c_str()), nullptr};
    pid_t child = 0;
    if (posix_spawnp(&child, "tail", &actions, nullptr, argv, environ) != 0) std::abort();
    int status = 0;
    ::waitpid(child, &status, 0);
    posix_spawn_file_actions_destroy(&actions);
  }
  fs::remove(logPath());
}
BENCHMARK(BM_TailCommand)->Unit(benchmark::kMillisecond)->Iterations(20);

}  // namespace

BENCHMARK_MAIN();
