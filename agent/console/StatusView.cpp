#include "agent/console/StatusView.h"

#include <map>
#include <utility>

#include "agent/console/ConsoleText.h"
#include "agent/console/StatusCommand.h"
#include "agent/run/RunConditions.h"

namespace velmo::agent::console {
namespace {

std::optional<StatusView::Agent> agentOf(const AgentFacts& facts) {
  if (!facts.agent) return std::nullopt;
  const auto& status = facts.agent->status;
  return StatusView::Agent{
      .version = status.version,
      .pid = facts.agent->pid,
      .startedAt = status.startedAt,
      .up = std::chrono::duration_cast<std::chrono::seconds>(facts.now - status.startedAt)};
}

StatusView::Runs runsOf(const AgentFacts& facts) {
  StatusView::Runs runs{.count = facts.runCount,
                        .last = facts.lastRun,
                        .interval = facts.planner.interval(),
                        .splayOffset = facts.planner.splay()};
  if (facts.agent) {
    const auto& status = facts.agent->status;
    runs.count = status.runCount;
    runs.last = status.lastRunDate;
    runs.inProgress = status.runInProgress;
    runs.startedAt = status.runStartedAt;
    runs.pending = status.runPending;
    runs.heldBy = status.runsHeldBy;
  }
  return runs;
}

// Whether the windows allow a run now, and if not, why and until when.
StatusView::Windows windowsOf(const AgentFacts& facts) {
  const auto& policy = facts.planner.policy();
  StatusView::Windows result{
      .restricted = policy.has_value(),
      .userRunsAnyTime = !policy || facts.config.allowUserInitiatedOutsideWindows};
  if (!policy || policy->isWithinAllowedWindow(facts.now)) return result;
  result.allowedNow = false;
  const auto stretches = policy->stretches(facts.now, facts.now + std::chrono::minutes(1));
  if (!stretches.empty()) {
    result.reason = ConsoleText::reason(
        stretches.front().verdict, *policy,
        facts.config.globalAllowWindows.empty() && facts.config.velmoTuesdayOnly);
  }
  const auto next = facts.planner.nextAllowedDate(facts.now);
  if (next != facts.now) result.nextAllowed = next;
  return result;
}

StatusView::Maintenance maintenanceOf(const AgentFacts& facts) {
  StatusView::Maintenance maintenance{.count = facts.maintenanceCount,
                                      .last = facts.lastMaintenance};
  if (facts.agent) {
    maintenance.next = facts.agent->status.nextMaintenanceDate;
    maintenance.running = facts.agent->status.maintenanceRunning;
  }
  return maintenance;
}

// Deferral counts per app and version, and the latest, from the records.
std::vector<StatusView::Deferred> deferralsOf(const AgentFacts& facts) {
  std::map<std::pair<std::string, std::string>, StatusView::Deferred> summed;
  if (facts.deferrals) {
    for (const auto& [key, record] : *facts.deferrals) {
      auto& entry = summed[{record.appId, record.targetVersion}];
      entry.app = record.appId;
      entry.version = record.targetVersion;
      entry.count += record.deferralCount.value_or(0);
      if (!record.deferrals) continue;
      for (const auto& detail : *record.deferrals) {
        if (!entry.last || detail.timestamp > *entry.last) entry.last = detail.timestamp;
      }
    }
  }
  std::vector<StatusView::Deferred> result;
  for (auto& [key, entry] : summed) result.push_back(std::move(entry));
  return result;
}

}  // namespace

StatusView StatusView::from(const AgentFacts& facts) {
  return {.now = facts.now,
          .timeZone = facts.timeZone,
          .agent = agentOf(facts),
          .nextRun = StatusCommand::nextRun(facts),
          .runs = runsOf(facts),
          .windows = windowsOf(facts),
          .maintenance = maintenanceOf(facts),
          .policy = facts.policyKeys,
          .conditions = run::RunConditions::described(facts.config),
          .items = facts.items.value_or(std::vector<core::UpdateItem>{}),
          .deferrals = deferralsOf(facts),
          .problems = facts.problems};
}

}  // namespace velmo::agent::console
