#pragma once

#include <filesystem>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include <asio/awaitable.hpp>

#include "core/AgentLifecycle.h"
#include "core/logging/CustomLogger.h"
#include "core/time/TimeInterval.h"
#include "platform/Clock.h"
#include "platform/ProcessLauncher.h"

namespace velmo::agent::run {

// The only road to the velmo tool: one process per call, output discarded,
// supervised by exit status and time limit. Calls may overlap; serialising
// runs is the gate's business. Once the agent is stopping it starts no tool,
// and at the end of the stop's drain it ends the runs still going. Main
// executor only.
class VelmoRunner {
 public:
  // A time limit ran out.
  static constexpr int kTimedOut = 124;
  // The tool could not be started. No exit status or signal number is negative.
  static constexpr int kLaunchFailed = -1;
  // The agent is stopping: nothing was started, and the runner has said so
  // once for the whole stop, so callers log nothing more.
  static constexpr int kNotStarted = -2;

  VelmoRunner(platform::ProcessLauncher& launcher, platform::Clock& clock,
              std::filesystem::path toolPath, core::AgentLifecycle* lifecycle = nullptr);

  // Runs the tool with `arguments` (without a shell). Without `timeout` it
  // waits as long as the tool runs; with one (elapsed time), an overdue tool
  // gets SIGTERM, then SIGKILL 5 s later, and the result is kTimedOut. Never
  // blocks the executor it runs on. While the agent stops: kLaunchFailed at
  // kNotStarted at once, with one line for the whole stop.
  asio::awaitable<int> run(std::vector<std::string> arguments,
                           std::optional<core::TimeInterval> timeout) const;

  // Tool processes alive now; the stop waits for none.
  core::Published<std::size_t>& activeRuns() const { return *activeRuns_; }

 private:
  asio::awaitable<int> supervise(platform::ChildProcess& process,
                                 std::optional<core::TimeInterval> timeout) const;
  void logFinished(const std::string& joinedArguments, platform::ElapsedPoint start) const;

  platform::ProcessLauncher& launcher_;
  platform::Clock& clock_;
  std::filesystem::path toolPath_;
  core::AgentLifecycle* lifecycle_;
  core::CustomLogger logger_{"VelmoRunner"};
  // Shared, so that a run's count outlives nothing it shouldn't; changed on
  // the main executor only.
  std::shared_ptr<core::Published<std::size_t>> activeRuns_ =
      std::make_shared<core::Published<std::size_t>>(0);
  mutable bool refusalSaid_ = false;
};

}  // namespace velmo::agent::run
