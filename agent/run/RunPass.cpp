#include "agent/run/RunPass.h"

#include <utility>

#include "agent/run/VelmoRunJob.h"
#include "core/time/TimeInterval.h"
#include "core/time/VelmoFormatters.h"

namespace velmo::agent::run {
namespace {

std::string describe(platform::Duration duration) {
  return core::durationDescription(std::chrono::duration_cast<core::TimeInterval>(duration));
}

}  // namespace

RunPass::RunPass(Collaborators collaborators)
    : collaborators_(std::move(collaborators)),
      comparison_(collaborators_.runner, collaborators_.uiController, collaborators_.logger) {}

std::string RunPass::runLabel(bool userInitiated) {
  return userInitiated ? "User-Initiated Velmo Run" : "Scheduled Velmo Run";
}

asio::awaitable<void> RunPass::run(bool userInitiated) {
  platform::Clock& clock = collaborators_.clock;
  RunRecord& record = collaborators_.record;
  const core::CustomLogger& logger = collaborators_.logger;
  const platform::TimePoint now = clock.now();
  const platform::ElapsedPoint began = clock.elapsed();
  const std::int64_t runNumber = record.runCount().value_or(0) + 1;
  const bool skip = co_await shouldSkipRun();

  if (!windowsAllow(userInitiated, now)) co_return;
  if (!userInitiated) {
    const auto verdict = collaborators_.conditions.now(collaborators_.config);
    record.updateActivity([&](RunActivity& activity) { activity.heldBy = verdict.reason; });
    if (!verdict.runsNow) {
      collaborators_.conditions.hold(runLabel(false), verdict);
      co_return;
    }
  }

  if (skip) {
    logger.info("Configured to skip the first Velmo Run.");
    remember({userInitiated, now, clock.now(), "skipped", 0});
    record.record(runNumber, clock.now());
    co_return;
  }

  const std::string name = runLabel(userInitiated);
  logger.info(name + " #" + std::to_string(runNumber) + " started.");
  record.updateActivity([now, userInitiated](RunActivity& activity) {
    activity.inProgress = true;
    activity.userInitiated = userInitiated;
    activity.startedAt = now;
  });
  // Cleared however the run ends.
  const auto over = [](RunRecord* record) {
    record->updateActivity([](RunActivity& activity) {
      activity.inProgress = false;
      activity.userInitiated = false;
      activity.startedAt.reset();
    });
  };
  const std::unique_ptr<RunRecord, decltype(over)> inProgress(&record, over);
  co_await comparison_.compareListedItems();

  const VelmoRunJob::Outcome outcome = co_await runJob(userInitiated);

  const platform::TimePoint end = clock.now();
  logger.info(name + " #" + std::to_string(runNumber) + " finished in " +
              describe(clock.elapsed() - began) + ".");
  remember({userInitiated, now, end, resultText(outcome), outcome.installs});
  record.record(runNumber, end);
}

std::string RunPass::resultText(const VelmoRunJob::Outcome& outcome) {
  if (outcome.failed > 0) return "failed";
  if (outcome.notStarted > 0) return "stopped";
  return "succeeded";
}

void RunPass::remember(LastRun lastRun) { collaborators_.record.remember(std::move(lastRun)); }

asio::awaitable<bool> RunPass::shouldSkipRun() {
  const bool configured = co_await collaborators_.managedPrefs.boolValue(
      "SkipFirstVelmoAgentRun", mdm::ManagedDomain::velmoAgent, false);
  if (!configured) co_return false;
  const auto count = collaborators_.record.runCount();
  co_return count ? *count == 0 : true;
}

bool RunPass::windowsAllow(bool userInitiated, platform::TimePoint now) const {
  const auto& config = collaborators_.config;
  const core::CustomLogger& logger = collaborators_.logger;
  const auto policy = config.windowPolicy(collaborators_.currentTimeZone());
  if (!policy) return true;
  if (userInitiated) {
    if (config.allowUserInitiatedOutsideWindows || policy->isWithinAllowedWindow(now)) return true;
    logger.info(
        "User\u2011initiated Velmo Run requested outside configured windows and overrides are "
        "disabled. Skipping run.");
    return false;
  }
  if (policy->isWithinAllowedWindow(now)) return true;
  logger.info("Current time is outside allowed Velmo Run windows. Skipping scheduled run.");
  const platform::TimePoint next = policy->nextAllowedRunDate(now, kRefusedRunSearchDays);
  if (next > now) {
    logger.info("Next allowed Velmo Run window begins at " +
                core::VelmoFormatters::friendlyDate(next) + " (in " + describe(next - now) + ").");
  }
  return false;
}

asio::awaitable<VelmoRunJob::Outcome> RunPass::runJob(bool userInitiated) {
  const VelmoRunJob::Collaborators jobCollaborators{
      collaborators_.mainExecutor,      collaborators_.userDefaults, collaborators_.managedPrefs,
      collaborators_.distributedCenter, collaborators_.runner,       collaborators_.inventory};
  auto job = std::make_unique<VelmoRunJob>(jobCollaborators, userInitiated);
  co_return co_await job->run();
}

}  // namespace velmo::agent::run
