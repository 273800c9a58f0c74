#pragma once

#include <filesystem>
#include <optional>
#include <string>
#include <vector>

#include <asio/awaitable.hpp>

#include "core/logging/CustomLogger.h"
#include "core/time/TimeInterval.h"
#include "platform/Clock.h"
#include "platform/ProcessLauncher.h"

namespace velmo::agent::run {

// The only road to the velmo tool: one process per call, output discarded,
// supervised by exit status and time limit. Holds no state between calls, so
// calls may overlap; serialising runs is the gate's business.
class VelmoRunner {
 public:
  // A time limit ran out.
  static constexpr int kTimedOut = 124;
  // The tool could not be started. No exit status or signal number is negative.
  static constexpr int kLaunchFailed = -1;

  VelmoRunner(platform::ProcessLauncher& launcher, platform::Clock& clock,
              std::filesystem::path toolPath);

  // Runs the tool with `arguments` (without a shell). Without `timeout` it
  // waits as long as the tool runs; with one, an overdue tool gets SIGTERM,
  // then SIGKILL 5 s later, and the result is kTimedOut. Suspends between
  // checks, so it never blocks the executor it runs on.
  asio::awaitable<int> run(std::vector<std::string> arguments,
                           std::optional<core::TimeInterval> timeout) const;

 private:
  asio::awaitable<int> superviseWithLimit(platform::ChildProcess& process,
                                          core::TimeInterval timeout) const;
  void logFinished(const std::string& joinedArguments, platform::TimePoint start) const;

  platform::ProcessLauncher& launcher_;
  platform::Clock& clock_;
  std::filesystem::path toolPath_;
  core::CustomLogger logger_{"VelmoRunner"};
};

}  // namespace velmo::agent::run
