#pragma once

#include <cstdint>
#include <functional>
#include <memory>
#include <vector>

#include <asio/awaitable.hpp>

#include "core/Executors.h"
#include "core/Lifetime.h"
#include "core/logging/CustomLogger.h"
#include "core/time/TimeInterval.h"
#include "platform/Clock.h"

namespace velmo::agent::run {

// Lets one update run go on at a time. A request that finds the gate free runs
// its operation; one that finds it held leaves a mark and waits, and the
// holder runs its own operation once more before letting go, however many
// requests came meanwhile. A watchdog frees the gate when the holder stays
// longer than `maxDuration`, so a stuck run never blocks later ones.
//
// All state lives on the gate's own strand. When an operation that outlived a
// forced unlock finally returns, it leaves the gate alone: it neither loops
// for a mark nor unlocks, since the gate may have a newer holder by then.
class RunGate {
 public:
  using Operation = std::function<asio::awaitable<void>()>;

  RunGate(const core::Executor& executor, platform::Clock& clock);
  ~RunGate();
  RunGate(const RunGate&) = delete;
  RunGate& operator=(const RunGate&) = delete;

  // Returns once the gate has served this request. Safe from any executor.
  asio::awaitable<void> request(Operation operation, core::TimeInterval maxDuration);
  // Hears, on the gate's strand, each time a further pass is marked or taken
  // up. Set before the first request.
  // The agent is stopping: the watchdog goes and no holder arms it again, so
  // it never frees the gate into a stopping agent. Safe from any executor.
  void stop();
  void setPendingObserver(std::function<void(bool pending)> observer) {
    pendingObserver_ = std::move(observer);
  }

 private:
  asio::awaitable<void> requestOnStrand(Operation operation, core::TimeInterval maxDuration);
  void unlock();
  void setPending(bool pending);

  core::SerialExecutor strand_;
  platform::Clock& clock_;
  bool running_ = false;
  bool pending_ = false;
  bool stopped_ = false;
  std::function<void(bool)> pendingObserver_;
  core::CustomLogger logger_{"RunGate"};
  std::vector<std::function<void()>> waiters_;
  // Counts holders, so that a holder freed by the watchdog knows it no longer is one.
  std::uint64_t holder_ = 0;
  std::unique_ptr<platform::Timer> watchdog_;
  core::Lifetime lifetime_;
};

}  // namespace velmo::agent::run
