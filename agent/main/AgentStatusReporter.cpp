#include "agent/main/AgentStatusReporter.h"

namespace velmo::agent {

AgentStatusReporter::AgentStatusReporter(platform::AgentStatusPublisher& publisher,
                                         std::string version, platform::TimePoint startedAt)
    : publisher_(publisher) {
  status_.version = std::move(version);
  status_.startedAt = startedAt;
  publish();
}

void AgentStatusReporter::follow(core::Published<run::RunActivity>& runs,
                                 core::Published<maintenance::MaintenanceActivity>& maintenance) {
  cancellables_.push_back(runs.subscribe([this](const run::RunActivity& activity) {
    status_.nextRunDate = activity.nextRunDate;
    status_.runInProgress = activity.inProgress;
    status_.runStartedAt = activity.startedAt;
    status_.runPending = activity.pending;
    status_.runsHeldBy = activity.heldBy;
    status_.lastRunDate = activity.lastRunDate;
    status_.runCount = activity.runCount;
    publish();
  }));
  cancellables_.push_back(
      maintenance.subscribe([this](const maintenance::MaintenanceActivity& activity) {
        status_.nextMaintenanceDate = activity.nextDate;
        status_.maintenanceRunning = activity.running;
        publish();
      }));
}

void AgentStatusReporter::publish() { publisher_.publish(status_); }

}  // namespace velmo::agent
