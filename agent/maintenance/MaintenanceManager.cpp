#include "agent/maintenance/MaintenanceManager.h"

#include <limits>
#include <memory>

#include <asio/experimental/awaitable_operators.hpp>
#include <asio/post.hpp>
#include <asio/use_awaitable.hpp>

#include "core/Lifetime.h"

namespace velmo::agent::maintenance {
namespace {

core::TimeInterval seconds(platform::Duration duration) {
  return std::chrono::duration_cast<core::TimeInterval>(duration);
}

}  // namespace

MaintenanceManager::MaintenanceManager(const Collaborators& collaborators)
    : collaborators_(collaborators),
      plistManager_(collaborators.files, collaborators.paths.agentStateFile(),
                    run::PlistManager::Retries{collaborators.clock, collaborators.mainExecutor}),
      cachePruner_(collaborators.files, collaborators.clock,
                   collaborators.paths.toolCacheDirectory(), logger_),
      logTruncator_(collaborators.files, collaborators.paths.logFile(), logger_),
      tempArtifactCleaner_(
          collaborators.files, collaborators.clock,
          {collaborators.paths.applicationsDirectory(), collaborators.paths.utilitiesDirectory()},
          logger_),
      toolLinkMaintainer_(collaborators.files, collaborators.userDefaults,
                          collaborators.paths.toolLink(), collaborators.paths.toolExecutable(),
                          logger_) {}

std::shared_ptr<MaintenanceManager> MaintenanceManager::make(const Collaborators& collaborators) {
  std::shared_ptr<MaintenanceManager> manager(new MaintenanceManager(collaborators));
  manager->workspaceToken_ = collaborators.workspaceEvents.addObserver(core::whileAlive(
      manager->weak_from_this(), [](MaintenanceManager& self, platform::WorkspaceEvent event) {
        if (event == platform::WorkspaceEvent::willSleep) self.willSleep();
        if (event == platform::WorkspaceEvent::didWake) self.didWake();
      }));
  if (collaborators.lifecycle) {
    manager->stop_ =
        collaborators.lifecycle->subscribe([raw = manager.get()](core::LifePhase phase) {
          if (phase != core::LifePhase::running) raw->clearTimer();
        });
  }
  // A start never looks at the last cycle's date: it always runs one.
  manager->startCycle();
  return manager;
}

MaintenanceManager::~MaintenanceManager() {
  collaborators_.workspaceEvents.removeObserver(workspaceToken_);
}

void MaintenanceManager::startCycle() {
  if (collaborators_.lifecycle && collaborators_.lifecycle->stopping()) {
    logger_.debug("The agent is stopping; no maintenance cycle starts.");
    return;
  }
  core::startHolding(collaborators_.mainExecutor, weak_from_this(), logger_,
                     [](MaintenanceManager& self) { return self.runMaintenanceAndReschedule(); });
}

asio::awaitable<void> MaintenanceManager::runMaintenanceAndReschedule() {
  // Two cycles at once would share one count; the one running arms the timer.
  if (cycleRunning_) {
    logger_.debug("A maintenance cycle is already running; it schedules the next one.");
    co_return;
  }
  // Cleared however the cycle ends, so that no fault can stop housekeeping.
  cycleRunning_ = true;
  publishActivity();
  const auto done = [](MaintenanceManager* self) {
    self->cycleRunning_ = false;
    self->publishActivity();
  };
  const std::unique_ptr<MaintenanceManager, decltype(done)> running(this, done);
  co_await runMaintenance();
  scheduleTimer();
}

asio::awaitable<void> MaintenanceManager::runMaintenance() {
  const platform::ElapsedPoint startedAt = collaborators_.clock.elapsed();
  const auto stored = plistManager_.value(run::PlistKey::maintenanceTaskRunCount);
  const auto* count = stored ? stored->getIf<std::int64_t>() : nullptr;
  const std::int64_t previous = count ? *count : 0;
  const std::int64_t cycleNumber =
      previous < std::numeric_limits<std::int64_t>::max() ? previous + 1 : previous;
  logger_.info("Maintenance cycle #" + std::to_string(cycleNumber) + " started.");

  const bool reporting = co_await collaborators_.managedPrefs.boolValue(
      "EnableDashboardReporting", mdm::ManagedDomain::velmo, false);
  auto prune = onMain([this] { cachePruner_.pruneCache(kCacheAgeLimitDays); });
  auto truncate = onMain([this] { logTruncator_.truncateLogFile(kLogLimitMegabytes); });
  auto cleanUp =
      onMain([this] { tempArtifactCleaner_.cleanUpTempArtifacts(kTempArtifactAgeLimitDays); });
  auto link = onMain([this] { toolLinkMaintainer_.maintainToolLink(); });
  using namespace asio::experimental::awaitable_operators;
  if (reporting) {
    logger_.debug("Dashboard Reporting is enabled.");
    co_await (submitReport() && std::move(prune) && std::move(truncate) && std::move(cleanUp) &&
              std::move(link));
  } else {
    co_await (std::move(prune) && std::move(truncate) && std::move(cleanUp) && std::move(link));
  }

  const platform::TimePoint finishedAt = collaborators_.clock.now();
  logger_.info("Maintenance cycle #" + std::to_string(cycleNumber) + " finished in: " +
               core::durationDescription(seconds(collaborators_.clock.elapsed() - startedAt)));
  plistManager_.setValue(core::PlistValue(cycleNumber), run::PlistKey::maintenanceTaskRunCount);
  plistManager_.setValue(core::PlistValue(core::PlistDate{finishedAt}),
                         run::PlistKey::lastMaintenanceTaskRun);
}

asio::awaitable<void> MaintenanceManager::onMain(std::function<void()> job) {
  co_await asio::post(collaborators_.mainExecutor, asio::use_awaitable);
  job();
}

asio::awaitable<void> MaintenanceManager::submitReport() {
  logger_.info("Generating and submitting Velmo Report...");
  std::vector<std::string> arguments{"report", "--submit"};
  const int code = co_await collaborators_.runner.run(std::move(arguments), kReportTimeLimit);
  if (code == 0) {
    logger_.info("Velmo Report submitted successfully.");
  } else if (code != run::VelmoRunner::kNotStarted) {
    logger_.error("Failed to submit Velmo Report with exit code: " + std::to_string(code));
  }
}

void MaintenanceManager::armTimer(platform::Duration delay) {
  if (collaborators_.lifecycle && collaborators_.lifecycle->stopping()) return;
  timer_ = collaborators_.clock.scheduleAfter(delay, collaborators_.mainExecutor,
                                              core::whileAlive(weak_from_this(), [](auto& self) {
                                                // The handle goes when the next is armed.
                                                self.timerFireDate_.reset();
                                                self.publishActivity();
                                                self.startCycle();
                                              }));
  timerFireDate_ = collaborators_.clock.now() + delay;
  publishActivity();
}

void MaintenanceManager::clearTimer() {
  timer_.reset();
  timerFireDate_.reset();
  publishActivity();
}

void MaintenanceManager::publishActivity() {
  MaintenanceActivity fresh{timerFireDate_, cycleRunning_};
  if (fresh != activity_.value()) activity_.set(std::move(fresh));
}

void MaintenanceManager::scheduleTimer() {
  clearTimer();
  armTimer(core::toDuration(kTimerInterval));
  logger_.info("Maintenance cycle scheduled to run in " +
               core::durationDescription(kTimerInterval));
}

void MaintenanceManager::willSleep() {
  logger_.debug("System is going to sleep. Invalidating maintenance cycle timer.");
  // A cycle in progress goes on; only the wake-up is dropped.
  clearTimer();
}

void MaintenanceManager::didWake() {
  logger_.debug("System woke up. Checking last maintenance cycle and scheduling next run.");
  clearTimer();
  const platform::TimePoint now = collaborators_.clock.now();
  const auto stored = plistManager_.value(run::PlistKey::lastMaintenanceTaskRun);
  const auto* last = stored ? stored->getIf<core::PlistDate>() : nullptr;
  if (!last) {
    startCycle();
    return;
  }
  const platform::Duration delay = last->value + core::toDuration(kTimerInterval) - now;
  if (delay <= platform::Duration::zero()) {
    logger_.debug(
        "Next scheduled maintenance cycle was in the past. Running maintenance cycle immediately.");
    startCycle();
    return;
  }
  armTimer(delay);
  logger_.info("Scheduled next maintenance cycle after wake in " +
               core::durationDescription(seconds(delay)) + ".");
}

}  // namespace velmo::agent::maintenance
