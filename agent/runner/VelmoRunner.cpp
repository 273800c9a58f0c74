#include "agent/runner/VelmoRunner.h"

#include "agent/runner/ProcessSupervisor.h"
#include "agent/runner/RunCommandBuilder.h"

#include <cmath>
#include <variant>

namespace velmo::agent::run {
VelmoRunner::VelmoRunner(platform::ProcessLauncher& launcher, platform::Clock& clock,
                         std::filesystem::path toolPath, core::AgentLifecycle* lifecycle)
    : launcher_(launcher), clock_(clock), toolPath_(std::move(toolPath)), lifecycle_(lifecycle) {}

asio::awaitable<int> VelmoRunner::run(std::vector<std::string> arguments,
                                      std::optional<core::TimeInterval> timeout) const {
  const platform::ElapsedPoint start = clock_.elapsed();
  const std::string text = joined(arguments);
  if (lifecycle_ && lifecycle_->stopping()) {
    // Whatever asked for it (a post, a timer) is dropped; one line says why.
    if (!std::exchange(refusalSaid_, true)) {
      logger_.info("The agent is stopping: Velmo " + text +
                   " was not started, and no tool run starts until the agent is back.");
    }
    co_return kNotStarted;
  }
  logger_.debug([&] { return "Running Velmo with arguments: " + text; });

  platform::LaunchResult launched = launcher_.launch(toolPath_, arguments);
  if (auto* failure = std::get_if<platform::LaunchFailure>(&launched)) {
    // A refused tool was said once for the episode, by the launcher.
    if (failure->refused) {
      logger_.debug("Failed to start Velmo process: " + failure->description);
    } else {
      logger_.error("Failed to start Velmo process: " + failure->description);
    }
    logFinished(text, start);
    co_return kLaunchFailed;
  }
  auto process = std::move(std::get<std::unique_ptr<platform::ChildProcess>>(launched));
  const auto counted = activeRuns_;
  counted->set(counted->value() + 1);
  const int result = co_await supervise(*process, timeout);
  counted->set(counted->value() - 1);
  logFinished(text, start);
  co_return result;
}

asio::awaitable<int> VelmoRunner::supervise(platform::ChildProcess& process,
                                            std::optional<core::TimeInterval> timeout) const {
  // A NaN or negative limit is spent at once; a huge one is capped.
  std::optional<platform::Duration> limit;
  if (timeout) limit = core::toDuration(*timeout);
  const auto seconds = limit ? std::chrono::duration_cast<std::chrono::seconds>(*limit).count() : 0;
  const std::string pid = std::to_string(process.processIdentifier());
  // A named variable: GCC 12 destroys braced temporaries inside co_await twice.
  ProcessSupervisor::Hooks hooks{
      [&](ProcessSupervisor::Ending why) {
        if (why == ProcessSupervisor::Ending::stopped) {
          logger_.error("Velmo process (pid: " + pid +
                        ") still runs as the agent's stop ends; sending SIGTERM.");
          return;
        }
        logger_.error("Velmo process (pid: " + pid + ") timed out after " +
                      std::to_string(seconds) + " seconds; sending SIGTERM.");
      },
      [&] {
        logger_.error("Velmo process (pid: " + pid +
                      ") did not exit after SIGTERM; sending SIGKILL.");
      }};
  const auto status =
      co_await ProcessSupervisor::supervise(process, clock_, limit, lifecycle_, std::move(hooks));
  co_return status.value_or(kTimedOut);
}

void VelmoRunner::logFinished(const std::string& joinedArguments,
                              platform::ElapsedPoint start) const {
  logger_.debug([&] {
    return "Velmo run " + joinedArguments + " finished in " +
           core::durationDescription(clock_.elapsed() - start);
  });
}

}  // namespace velmo::agent::run
