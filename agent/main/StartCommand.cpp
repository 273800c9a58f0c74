#include "agent/main/StartCommand.h"

#include "agent/run/VelmoRunCoordinator.h"
#include "core/notifications/NotificationNames.h"
#include "core/values/Bundle.h"

namespace velmo::agent {

StartCommand::StartCommand(Collaborators collaborators) : collaborators_(collaborators) {}

StartCommand::~StartCommand() {
  for (const auto token : burstTokens_) collaborators_.distributedCenter.removeObserver(token);
}

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
                                                     .inventory = c.inventory,
                                                     .lifecycle = &c.lifecycle,
                                                     .power = &c.power,
                                                     .network = &c.network});
  // Whether users' quitting of applications may start their updates; the
  // object that acts on it joins the start-up with its own subsystem.
  const bool activeIntervals = co_await collaborators_.managedPrefs.boolValue(
      "ActiveIntervals", mdm::ManagedDomain::velmoAgent, true);
  logger_.debug(std::string("Active intervals are ") + (activeIntervals ? "enabled" : "disabled"));
  build(activeIntervals, coordinator);
  followActivity(*coordinator);
  releaseMemoryAfterBursts();
  collaborators_.serviceManager.ready();

  co_await collaborators_.stop.finished();
  co_await flushSaves();
  logger_.info("Velmo Agent stopped.");
}

void StartCommand::build(bool activeIntervals,
                         std::shared_ptr<run::VelmoRunCoordinator> coordinator) {
  const auto& c = collaborators_;
  // The controller keeps the coordinator; the coordinator's link back is weak.
  uiController_ = items::UIController::make({.mainExecutor = c.mainExecutor,
                                             .fileExecutor = c.fileExecutor,
                                             .clock = c.clock,
                                             .files = c.files,
                                             .paths = c.paths,
                                             .distributedCenter = c.distributedCenter,
                                             .notificationCenter = c.notificationCenter,
                                             .agentQueue = c.agentQueue,
                                             .postLog = c.postLog},
                                            coordinator);
  deferralManager_ = std::make_unique<deferrals::DeferralManager>(
      deferrals::DeferralManager::Collaborators{.mainExecutor = c.mainExecutor,
                                                .fileExecutor = c.deferralsFileExecutor,
                                                .clock = c.clock,
                                                .files = c.files,
                                                .paths = c.paths,
                                                .distributedCenter = c.distributedCenter,
                                                .notificationCenter = c.notificationCenter,
                                                .postLog = c.postLog});
  maintenanceManager_ = maintenance::MaintenanceManager::make({.mainExecutor = c.mainExecutor,
                                                               .clock = c.clock,
                                                               .files = c.files,
                                                               .paths = c.paths,
                                                               .userDefaults = c.userDefaults,
                                                               .managedPrefs = c.managedPrefs,
                                                               .workspaceEvents = c.workspaceEvents,
                                                               .runner = c.runner,
                                                               .lifecycle = &c.lifecycle});
  coordinator->setUIController(uiController_);
  if (activeIntervals) {
    activeIntervalManager_ = std::make_unique<deferrals::ActiveIntervalManager>(
        deferrals::ActiveIntervalManager::Collaborators{c.mainExecutor, c.clock,
                                                        c.distributedCenter, c.terminations,
                                                        c.runner, c.postLog, c.agentQueue},
        uiController_);
  }
  iconObserver_ =
      policy::NotificationCenterIconObserver::make({.mainExecutor = c.mainExecutor,
                                                    .clock = c.clock,
                                                    .distributedCenter = c.distributedCenter,
                                                    .managedPrefs = c.managedPrefs,
                                                    .runner = c.runner});
}

// The bus object, the service manager's status line and the stop all follow
// what runs and housekeeping are doing.
void StartCommand::followActivity(run::VelmoRunCoordinator& coordinator) {
  const auto& c = collaborators_;
  statusReporter_ = std::make_unique<AgentStatusReporter>(
      c.statusPublisher, core::Bundle::main().versionString(), c.clock.now());
  statusReporter_->follow(coordinator.activity(), maintenanceManager_->activity());
  serviceStatus_ = std::make_unique<ServiceStatus>(c.serviceManager, c.lifecycle);
  serviceStatus_->follow(coordinator.activity(), maintenanceManager_->activity(),
                         c.runner.activeRuns(), uiController_->itemCount());
  busy_ = serviceStatus_->busyNow().subscribe(
      [&stop = c.stop](const std::string& what) { stop.setBusy(what); });
  report_ = std::make_unique<InventoryReportWriter>(
      InventoryReportWriter::Collaborators{.mainExecutor = c.mainExecutor,
                                           .fileExecutor = c.fileExecutor,
                                           .clock = c.clock,
                                           .files = c.files,
                                           .paths = c.paths,
                                           .stores = c.report.stores,
                                           .userDefaults = c.report.userDefaults,
                                           .distributedCenter = c.distributedCenter,
                                           .notificationCenter = c.notificationCenter,
                                           .recentErrors = c.report.recentErrors,
                                           .written = [this] {
                                             if (memoryRelease_) memoryRelease_->trigger();
                                           }});
  report_->follow(*statusReporter_, coordinator, coordinator.activity(),
                  maintenanceManager_->activity());
}

void StartCommand::releaseMemoryAfterBursts() {
  const auto& c = collaborators_;
  memoryRelease_ = std::make_unique<core::Debouncer>(
      c.mainExecutor, c.clock, kMemoryReleaseDelay, [&host = c.host] { host.releaseFreeMemory(); });
  // The posts a flood is made of; others are few.
  for (const auto name :
       {core::NotificationName::addItemsToUIControllerQueue,
        core::NotificationName::enqueueUpdateItem, core::NotificationName::dialogResponse,
        core::NotificationName::updateItemStateChange,
        core::NotificationName::userInitiatedUpdateCheck}) {
    burstTokens_.push_back(c.distributedCenter.addObserver(
        name, [this](const platform::DistributedNotification&) { memoryRelease_->trigger(); }));
  }
}

// What waits for a delayed save or a retry is written before the agent exits.
asio::awaitable<void> StartCommand::flushSaves() {
  co_await uiController_->flush();
  co_await deferralManager_->flush();
  co_await report_->flush();
}

}  // namespace velmo::agent
