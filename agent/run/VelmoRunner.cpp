#include "agent/run/VelmoRunner.h"

#include "agent/run/ProcessSupervisor.h"
#include "agent/run/RunCommandBuilder.h"

#include <cmath>
#include <variant>

namespace velmo::agent::run {
VelmoRunner::VelmoRunner(platform::ProcessLauncher& launcher, platform::Clock& clock,
                         std::filesystem::path toolPath)
    : launcher_(launcher), clock_(clock), toolPath_(std::move(toolPath)) {}

asio::awaitable<int> VelmoRunner::run(std::vector<std::string> arguments,
                                      std::optional<core::TimeInterval> timeout) const {
  const platform::TimePoint start = clock_.now();
  const std::string text = joined(arguments);
  logger_.debug([&] { return "Running Velmo with arguments: " + text; });

  platform::LaunchResult launched = launcher_.launch(toolPath_, arguments);
  if (auto* failure = std::get_if<platform::LaunchFailure>(&launched)) {
    logger_.error("Failed to start Velmo process: " + failure->description);
    logFinished(text, start);
    co_return kLaunchFailed;
  }
  auto process = std::move(std::get<std::unique_ptr<platform::ChildProcess>>(launched));

  int result;
  if (timeout) {
    result = co_await superviseWithLimit(*process, *timeout);
  } else {
    co_await process->waitUntilExit();
    result = process->terminationStatus();
  }
  logFinished(text, start);
  co_return result;
}

asio::awaitable<int> VelmoRunner::superviseWithLimit(platform::ChildProcess& process,
                                                     core::TimeInterval timeout) const {
  // A NaN or negative limit is spent at once; a huge one is capped.
  const platform::Duration limit = core::toDuration(timeout);
  const auto seconds = std::chrono::duration_cast<std::chrono::seconds>(limit).count();
  const std::string pid = std::to_string(process.processIdentifier());
  // A named variable: GCC 12 destroys braced temporaries inside co_await twice.
  ProcessSupervisor::Hooks hooks{[&] {
                                   logger_.error("Velmo process (pid: " + pid +
                                                 ") timed out after " + std::to_string(seconds) +
                                                 " seconds; sending SIGTERM.");
                                 },
                                 [&] {
                                   logger_.error("Velmo process (pid: " + pid +
                                                 ") did not exit after SIGTERM; sending SIGKILL.");
                                 }};
  const auto status =
      co_await ProcessSupervisor::superviseWithLimit(process, clock_, limit, std::move(hooks));
  co_return status.value_or(kTimedOut);
}

void VelmoRunner::logFinished(const std::string& joinedArguments, platform::TimePoint start) const {
  logger_.debug([&] {
    return "Velmo run " + joinedArguments + " finished in " +
           core::durationDescription(clock_.now() - start);
  });
}

}  // namespace velmo::agent::run
