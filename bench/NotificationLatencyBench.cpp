// Post-to-handler latency and throughput of distributed notifications between
// two processes on a private bus: the agent's own bus code on both sides,
// beside a bare sd-bus signal echo with the same wire form.
//
// The benchmark process posts "ping" signals; an echo process (this binary
// started again with --echo) answers each with a "pong" that carries the
// moment its handler saw the ping. Latency = handler time - post time, both on
// CLOCK_MONOTONIC, which the two processes share.
#include <benchmark/benchmark.h>
#include <signal.h>
#include <spawn.h>
#include <sys/wait.h>
#include <systemd/sd-bus.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <cstdlib>
#include <cstring>
#include <string>
#include <thread>
#include <vector>

#include <asio/io_context.hpp>

#include "backends/linux/SdBusConnection.h"
#include "backends/linux/SdBusNotificationCenter.h"
#include "backends/linux/SystemClock.h"
#include "tests/support/PrivateBus.h"

extern char** environ;

namespace {

using namespace velmo::platform;
using Clock = std::chrono::steady_clock;

constexpr const char* kPing = "com.marvenith.velmo.bench.ping";
constexpr const char* kPong = "com.marvenith.velmo.bench.pong";
constexpr const char* kPath = "/com/marvenith/velmo";
constexpr const char* kInterface = "com.marvenith.velmo.Notifications";

std::int64_t nowNanos() {
  return std::chrono::duration_cast<std::chrono::nanoseconds>(Clock::now().time_since_epoch())
      .count();
}

// "<sequence>:<sent ns>" plus ":<handled ns>" once the echo has seen it.
struct Stamp {
  long sequence = -1;
  std::int64_t sent = 0;
  std::int64_t handled = 0;
};

Stamp parse(const std::string& text) {
  Stamp stamp;
  std::sscanf(text.c_str(), "%ld:%ld:%ld", &stamp.sequence, &stamp.sent, &stamp.handled);
  return stamp;
}

// --- the bare sd-bus side, for comparison ---

void bareSend(sd_bus* bus, const char* name, const std::string& object) {
  sd_bus_message* m = nullptr;
  sd_bus_message_new_signal(bus, &m, kPath, kInterface, "Post");
  sd_bus_message_append(m, "sasa{sv}", name, 1, object.c_str(), 0);
  sd_bus_send(bus, m, nullptr);
  sd_bus_message_unref(m);
}

// The object of a Post signal (the echo always sends exactly one).
std::string bareObject(sd_bus_message* m) {
  const char* name = nullptr;
  const char* object = nullptr;
  sd_bus_message_read(m, "s", &name);
  sd_bus_message_enter_container(m, 'a', "s");
  sd_bus_message_read(m, "s", &object);
  return object ? object : "";
}

std::string matchRule(const char* name) {
  return std::string("type='signal',path='") + kPath + "',interface='" + kInterface +
         "',member='Post',arg0='" + name + "'";
}

int bareEcho() {
  sd_bus* bus = nullptr;
  if (sd_bus_open_system(&bus) < 0) return 1;
  auto handler = [](sd_bus_message* m, void* userdata, sd_bus_error*) -> int {
    const std::string reply = bareObject(m) + ":" + std::to_string(nowNanos());
    bareSend(static_cast<sd_bus*>(userdata), kPong, reply);
    return 0;
  };
  sd_bus_add_match(bus, nullptr, matchRule(kPing).c_str(), handler, bus);
  bareSend(bus, kPong, "ready");
  for (;;) {
    int r = sd_bus_process(bus, nullptr);
    if (r < 0) return 0;
    if (r == 0) sd_bus_wait(bus, UINT64_MAX);
  }
}

// --- the agent's side ---

int velmoEcho() {
  asio::io_context context;
  linux::SystemClock clock;
  linux::SdBusConnection connection(context.get_executor(), clock);
  connection.start();
  linux::SdBusNotificationCenter center(connection);
  center.addObserver(kPing, [&](const DistributedNotification& n) {
    center.post(kPong, n.object.value_or("") + ":" + std::to_string(nowNanos()));
  });
  center.post(kPong, "ready");
  context.run();
  return 0;
}

// The benchmark's end of one kind of echo.
class Sender {
 public:
  virtual ~Sender() = default;
  virtual void post(const std::string& object) = 0;
  // Handles what has arrived; gives the pongs seen.
  virtual void poll(std::vector<std::string>& pongs) = 0;
};

class VelmoSender final : public Sender {
 public:
  VelmoSender() {
    connection_.start();
    center_.addObserver(kPong, [this](const DistributedNotification& n) {
      received_.push_back(n.object.value_or(""));
    });
  }
  void post(const std::string& object) override { center_.post(kPing, object); }
  void poll(std::vector<std::string>& pongs) override {
    context_.restart();
    context_.poll();
    pongs.insert(pongs.end(), received_.begin(), received_.end());
    received_.clear();
  }

 private:
  asio::io_context context_;
  linux::SystemClock clock_;
  linux::SdBusConnection connection_{context_.get_executor(), clock_};
  linux::SdBusNotificationCenter center_{connection_};
  std::vector<std::string> received_;
};

class BareSender final : public Sender {
 public:
  BareSender() {
    sd_bus_open_system(&bus_);
    auto handler = [](sd_bus_message* m, void* userdata, sd_bus_error*) -> int {
      static_cast<BareSender*>(userdata)->received_.push_back(bareObject(m));
      return 0;
    };
    sd_bus_add_match(bus_, nullptr, matchRule(kPong).c_str(), handler, this);
  }
  ~BareSender() override { sd_bus_flush_close_unref(bus_); }
  void post(const std::string& object) override { bareSend(bus_, kPing, object); }
  void poll(std::vector<std::string>& pongs) override {
    while (sd_bus_process(bus_, nullptr) > 0) {
    }
    pongs.insert(pongs.end(), received_.begin(), received_.end());
    received_.clear();
  }

 private:
  sd_bus* bus_ = nullptr;
  std::vector<std::string> received_;
};

struct Echo {
  pid_t pid = -1;
  ~Echo() {
    if (pid > 0) {
      ::kill(pid, SIGTERM);
      ::waitpid(pid, nullptr, 0);
    }
  }
};

std::string selfPath() {
  char buffer[4096];
  const ssize_t length = ::readlink("/proc/self/exe", buffer, sizeof buffer - 1);
  return std::string(buffer, length > 0 ? static_cast<std::size_t>(length) : 0);
}

bool waitForPongs(Sender& sender, std::vector<std::string>& pongs, std::size_t count,
                  std::chrono::seconds limit) {
  const auto deadline = Clock::now() + limit;
  while (pongs.size() < count && Clock::now() < deadline) {
    sender.poll(pongs);
    std::this_thread::sleep_for(std::chrono::microseconds(50));
  }
  return pongs.size() >= count;
}

// Posts `count` pings at `rate` per second (0: as fast as possible) and
// reports latency percentiles and the achieved rate.
void runPingPong(benchmark::State& state, bool bare) {
  const long count = state.range(0);
  const long rate = state.range(1);
  velmo::testing::PrivateBus bus;
  Echo echo;
  std::string self = selfPath();
  std::string mode = bare ? "bare" : "velmo";
  std::vector<char*> argv{self.data(), const_cast<char*>("--echo"), mode.data(), nullptr};
  ::posix_spawn(&echo.pid, self.c_str(), nullptr, nullptr, argv.data(), environ);

  std::unique_ptr<Sender> sender;
  if (bare) {
    sender = std::make_unique<BareSender>();
  } else {
    sender = std::make_unique<VelmoSender>();
  }
  std::vector<std::string> pongs;
  if (!waitForPongs(*sender, pongs, 1, std::chrono::seconds(10))) {
    state.SkipWithError("echo process never got ready");
    return;
  }

  std::vector<double> latencies;
  double seconds = 0;
  for (auto _ : state) {
    pongs.clear();
    const auto start = Clock::now();
    for (long i = 0; i < count; ++i) {
      if (rate > 0) {
        std::this_thread::sleep_until(start + std::chrono::nanoseconds(i * 1'000'000'000L / rate));
      }
      sender->post(std::to_string(i) + ":" + std::to_string(nowNanos()));
      sender->poll(pongs);
    }
    if (!waitForPongs(*sender, pongs, static_cast<std::size_t>(count), std::chrono::seconds(60))) {
      state.SkipWithError("pongs missing");
      return;
    }
    seconds += std::chrono::duration<double>(Clock::now() - start).count();
    for (const auto& pong : pongs) {
      const Stamp stamp = parse(pong);
      if (stamp.sequence >= 0) latencies.push_back((stamp.handled - stamp.sent) / 1000.0);
    }
  }
  std::sort(latencies.begin(), latencies.end());
  auto percentile = [&](double p) {
    return latencies.empty() ? 0.0
                             : latencies[std::min(latencies.size() - 1,
                                                  static_cast<std::size_t>(p * latencies.size()))];
  };
  state.counters["p50_us"] = percentile(0.50);
  state.counters["p99_us"] = percentile(0.99);
  state.counters["max_us"] = latencies.empty() ? 0 : latencies.back();
  state.counters["posts_per_s"] = seconds > 0 ? latencies.size() / seconds : 0;
}

void BM_VelmoPostToHandler(benchmark::State& state) { runPingPong(state, false); }
void BM_BareSdBusEcho(benchmark::State& state) { runPingPong(state, true); }

// 5,000 posts at 5,000 per second, then a burst of 10,000 as fast as possible.
BENCHMARK(BM_VelmoPostToHandler)
    ->Args({5000, 5000})
    ->Args({10000, 0})
    ->Iterations(1)
    ->UseRealTime()
    ->Unit(benchmark::kMillisecond);
BENCHMARK(BM_BareSdBusEcho)
    ->Args({5000, 5000})
    ->Args({10000, 0})
    ->Iterations(1)
    ->UseRealTime()
    ->Unit(benchmark::kMillisecond);

}  // namespace

int main(int argc, char** argv) {
  if (argc == 3 && std::strcmp(argv[1], "--echo") == 0) {
    return std::strcmp(argv[2], "bare") == 0 ? bareEcho() : velmoEcho();
  }
  benchmark::Initialize(&argc, argv);
  benchmark::RunSpecifiedBenchmarks();
  benchmark::Shutdown();
  return 0;
}
