#include "agent/main/StartCommand.h"

#include "agent/run/VelmoRunCoordinator.h"
#include "core/Bundle.h"

namespace velmo::agent {

StartCommand::StartCommand(Collaborators collaborators) : collaborators_(collaborators) {}

StartCommand::~StartCommand() = default;

asio::awaitable<void> StartCommand::run() {
  logger_.info("Velmo Agent " + core::Bundle::main().versionString() + " starting; tool at " +
               collaborators_.paths.toolExecutable().string());

  // Runs on the main executor, where every long-lived object lives.
  const auto& c = collaborators_;
  auto coordinator = run::VelmoRunCoordinator::make({.mainExecutor = c.mainExecutor,
                                                     .clock = c.clock,
                                                     .files = c.files,
                                                     .paths = c.paths,
                                                     .userDefaults = c.userDefaults,
                                                     .managedPrefs = c.managedPrefs,
                                                     .distributedCenter = c.distributedCenter,
                                                     .workspaceEvents = c.workspaceEvents,
                                                     .runner = c.runner,
                                                     .inventory = c.inventory});
  // The controller keeps the coordinator; the coordinator's link back is weak.
  uiController_ = items::UIController::make({.mainExecutor = c.mainExecutor,
                                             .fileExecutor = c.fileExecutor,
                                             .clock = c.clock,
                                             .files = c.files,
                                             .paths = c.paths,
                                             .distributedCenter = c.distributedCenter,
                                             .notificationCenter = c.notificationCenter,
                                             .agentQueue = c.agentQueue,
                                             .malformedPosts = c.malformedPosts},
                                            coordinator);
  deferralManager_ = std::make_unique<deferrals::DeferralManager>(
      deferrals::DeferralManager::Collaborators{.mainExecutor = c.mainExecutor,
                                                .fileExecutor = c.deferralsFileExecutor,
                                                .clock = c.clock,
                                                .files = c.files,
                                                .paths = c.paths,
                                                .distributedCenter = c.distributedCenter,
                                                .notificationCenter = c.notificationCenter,
                                                .malformedPosts = c.malformedPosts});
  maintenanceManager_ = maintenance::MaintenanceManager::make({.mainExecutor = c.mainExecutor,
                                                               .clock = c.clock,
                                                               .files = c.files,
                                                               .paths = c.paths,
                                                               .userDefaults = c.userDefaults,
                                                               .managedPrefs = c.managedPrefs,
                                                               .workspaceEvents = c.workspaceEvents,
                                                               .runner = c.runner});

  statusReporter_ = std::make_unique<AgentStatusReporter>(
      c.statusPublisher, core::Bundle::main().versionString(), c.clock.now());
  statusReporter_->follow(coordinator->activity(), maintenanceManager_->activity());

  // Whether users' quitting of applications may start their updates; the
  // object that acts on it joins the start-up with its own subsystem.
  const bool activeIntervals = co_await collaborators_.managedPrefs.boolValue(
      "ActiveIntervals", mdm::ManagedDomain::velmoAgent, true);
  logger_.debug(std::string("Active intervals are ") + (activeIntervals ? "enabled" : "disabled"));
  coordinator->setUIController(uiController_);
  if (activeIntervals) {
    activeIntervalManager_ = std::make_unique<deferrals::ActiveIntervalManager>(
        deferrals::ActiveIntervalManager::Collaborators{c.mainExecutor, c.clock,
                                                        c.distributedCenter, c.terminations,
                                                        c.runner, c.malformedPosts},
        uiController_);
  }
  iconObserver_ =
      policy::NotificationCenterIconObserver::make({.mainExecutor = c.mainExecutor,
                                                    .clock = c.clock,
                                                    .distributedCenter = c.distributedCenter,
                                                    .managedPrefs = c.managedPrefs,
                                                    .runner = c.runner});

  // Nothing ends this loop: the process lives until it is stopped by a signal.
  // Every ten steps freed memory goes back to the system: a flood of posts
  // (each user's check is a task of its own) would otherwise leave the
  // resident size at its peak.
  for (unsigned step = 1;; ++step) {
    co_await collaborators_.clock.sleep(std::chrono::seconds(1));
    if (step % 10 == 0) collaborators_.host.releaseFreeMemory();
  }
}

}  // namespace velmo::agent
