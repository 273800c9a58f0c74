#include "agent/run/VelmoRunner.h"

#include <signal.h>

#include <cmath>
#include <variant>

namespace velmo::agent::run {
namespace {

using std::chrono::milliseconds;

constexpr platform::Duration kPollInterval = milliseconds(200);
// The graces after SIGTERM (5.0 s) and SIGKILL (1.0 s), counted in polls.
constexpr int kPollsAfterTerminate = 25;
constexpr int kPollsAfterKill = 5;

std::string join(const std::vector<std::string>& arguments) {
  std::string joined;
  for (const auto& argument : arguments) {
    if (!joined.empty()) joined += ' ';
    joined += argument;
  }
  return joined;
}

}  // namespace

VelmoRunner::VelmoRunner(platform::ProcessLauncher& launcher, platform::Clock& clock,
                         std::filesystem::path toolPath)
    : launcher_(launcher), clock_(clock), toolPath_(std::move(toolPath)) {}

asio::awaitable<int> VelmoRunner::run(std::vector<std::string> arguments,
                                      std::optional<core::TimeInterval> timeout) const {
  const platform::TimePoint start = clock_.now();
  const std::string joined = join(arguments);
  logger_.debug([&] { return "Running Velmo with arguments: " + joined; });

  platform::LaunchResult launched = launcher_.launch(toolPath_, arguments);
  if (auto* failure = std::get_if<platform::LaunchFailure>(&launched)) {
    logger_.error("Failed to start Velmo process: " + failure->description);
    logFinished(joined, start);
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
  logFinished(joined, start);
  co_return result;
}

asio::awaitable<int> VelmoRunner::superviseWithLimit(platform::ChildProcess& process,
                                                     core::TimeInterval timeout) const {
  // A NaN or negative limit is spent at once; a huge one is capped.
  const platform::Duration limit = core::toDuration(timeout);
  const platform::TimePoint deadline = clock_.now() + limit;
  const auto seconds = std::chrono::duration_cast<std::chrono::seconds>(limit).count();
  while (process.isRunning()) {
    if (clock_.now() >= deadline) {
      const int pid = process.processIdentifier();
      logger_.error("Velmo process (pid: " + std::to_string(pid) + ") timed out after " +
                    std::to_string(seconds) + " seconds; sending SIGTERM.");
      process.sendSignal(SIGTERM);
      for (int polls = 0; polls < kPollsAfterTerminate && process.isRunning(); ++polls) {
        co_await clock_.sleep(kPollInterval);
      }
      if (process.isRunning()) {
        logger_.error("Velmo process (pid: " + std::to_string(pid) +
                      ") did not exit after SIGTERM; sending SIGKILL.");
        if (pid >= 1) process.sendSignal(SIGKILL);
        for (int polls = 0; polls < kPollsAfterKill && process.isRunning(); ++polls) {
          co_await clock_.sleep(kPollInterval);
        }
      }
      co_return kTimedOut;
    }
    co_await clock_.sleep(kPollInterval);
  }
  co_return process.terminationStatus();
}

void VelmoRunner::logFinished(const std::string& joinedArguments, platform::TimePoint start) const {
  logger_.debug([&] {
    return "Velmo run " + joinedArguments + " finished in " +
           core::durationDescription(clock_.now() - start);
  });
}

}  // namespace velmo::agent::run
