#include "agent/console/StatusCommand.h"

#include <map>

#include "core/time/TimeInterval.h"

namespace velmo::agent::console {
namespace {

using nlohmann::json;

json date(const std::optional<platform::TimePoint>& value) {
  return value ? json(ConsoleText::isoDate(*value)) : json(nullptr);
}

// Whether the windows allow a run now, and if not, why and until when.
struct WindowsNow {
  bool allowed = true;
  std::string reason;
  std::optional<platform::TimePoint> nextAllowed;
};

WindowsNow windowsNow(const AgentFacts& facts) {
  WindowsNow result;
  const auto& policy = facts.planner.policy();
  if (!policy || policy->isWithinAllowedWindow(facts.now)) return result;
  result.allowed = false;
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

// Deferral counts per app and version, from the records' keys.
std::map<std::pair<std::string, std::string>, std::int64_t> deferralCounts(
    const AgentFacts& facts) {
  std::map<std::pair<std::string, std::string>, std::int64_t> counts;
  if (!facts.deferrals) return counts;
  for (const auto& [key, record] : *facts.deferrals) {
    counts[{record.appId, record.targetVersion}] += record.deferralCount.value_or(0);
  }
  return counts;
}

}  // namespace

std::optional<platform::TimePoint> StatusCommand::nextRun(const AgentFacts& facts) {
  if (facts.agent) return facts.agent->status.nextRunDate;
  return facts.planner.fromLastRun(facts.lastRun, facts.now).start;
}

json StatusCommand::json(const AgentFacts& facts) {
  nlohmann::json out;
  out["now"] = ConsoleText::isoDate(facts.now);
  out["timeZone"] = facts.timeZone;
  if (facts.agent) {
    const auto& status = facts.agent->status;
    out["agent"] = {
        {"running", true},
        {"pid", facts.agent->pid ? nlohmann::json(*facts.agent->pid) : nlohmann::json(nullptr)},
        {"version", status.version},
        {"startedAt", ConsoleText::isoDate(status.startedAt)},
        {"uptimeSeconds",
         std::chrono::duration_cast<std::chrono::seconds>(facts.now - status.startedAt).count()}};
  } else {
    out["agent"] = {{"running", false}};
  }
  const auto next = nextRun(facts);
  out["nextRun"] = date(next);
  out["nextRunFrom"] = facts.agent ? "agent" : "planned";
  const bool inProgress = facts.agent && facts.agent->status.runInProgress;
  out["runs"] = {{"count", facts.agent ? facts.agent->status.runCount : facts.runCount},
                 {"last", date(facts.agent ? facts.agent->status.lastRunDate : facts.lastRun)},
                 {"intervalSeconds", facts.planner.interval().count()},
                 {"splayOffsetSeconds", facts.planner.splay().count()},
                 {"inProgress", inProgress},
                 {"startedAt", date(facts.agent ? facts.agent->status.runStartedAt
                                                : std::optional<platform::TimePoint>())},
                 {"pending", facts.agent && facts.agent->status.runPending}};
  const auto windows = windowsNow(facts);
  out["windows"] = {
      {"allowedNow", windows.allowed},
      {"reason", windows.allowed ? nlohmann::json(nullptr) : nlohmann::json(windows.reason)},
      {"nextAllowed", date(windows.nextAllowed)},
      {"userRunsAnyTime",
       !facts.planner.policy() || facts.config.allowUserInitiatedOutsideWindows}};
  out["maintenance"] = {{"count", facts.maintenanceCount},
                        {"last", date(facts.lastMaintenance)},
                        {"next", date(facts.agent ? facts.agent->status.nextMaintenanceDate
                                                  : std::optional<platform::TimePoint>())},
                        {"running", facts.agent && facts.agent->status.maintenanceRunning}};
  out["policy"] = nlohmann::json::array();
  for (const auto& key : facts.policyKeys) {
    out["policy"].push_back(
        {{"domain", key.domain},
         {"key", key.key},
         {"road", key.road},
         {"source", key.source},
         {"value", key.value ? ConsoleText::plistJSON(*key.value) : nlohmann::json(nullptr)},
         {"reading", key.reading},
         {"ignored", key.ignored}});
  }
  out["items"] = nlohmann::json::array();
  for (const auto& item : facts.items.value_or(std::vector<core::UpdateItem>{})) {
    // Built from the item's own JSON, so the fields keep the state file's names.
    const auto text = item.jsonText();
    out["items"].push_back(text ? nlohmann::json::parse(*text, nullptr, false)
                                : nlohmann::json({{"id", item.id}}));
  }
  out["deferrals"] = nlohmann::json::array();
  for (const auto& [key, count] : deferralCounts(facts)) {
    out["deferrals"].push_back({{"app", key.first}, {"version", key.second}, {"count", count}});
  }
  out["problems"] = facts.problems;
  return out;
}

void StatusCommand::printText(const AgentFacts& facts, const ConsoleText& text, std::ostream& out) {
  using Colour = ConsoleText::Colour;
  const auto when = [&](const std::optional<platform::TimePoint>& date) -> std::string {
    if (!date) return "none";
    return ConsoleText::localDate(*date, facts.timeZone) + " (" +
           ConsoleText::relative(*date, facts.now) + ")";
  };
  std::vector<std::vector<std::string>> rows;
  if (facts.agent) {
    const auto& status = facts.agent->status;
    const auto up = std::chrono::duration_cast<std::chrono::seconds>(facts.now - status.startedAt);
    rows.push_back({"Agent", text.paint("running", Colour::green) + ", version " + status.version +
                                 (facts.agent->pid ? ", pid " + std::to_string(*facts.agent->pid)
                                                   : std::string()) +
                                 ", up " +
                                 core::durationDescription(core::TimeInterval(
                                     static_cast<double>(std::max<std::int64_t>(up.count(), 0))))});
  } else {
    rows.push_back({"Agent", text.paint("not running", Colour::red) +
                                 " (no answer on the system bus); times below are planned"});
  }
  rows.push_back(
      {"Now", ConsoleText::localDate(facts.now, facts.timeZone) + " (" + facts.timeZone + ")"});
  const bool inProgress = facts.agent && facts.agent->status.runInProgress;
  std::string next = inProgress ? "after the run in progress" : when(nextRun(facts));
  if (!facts.agent) next += ", once started: a run 1 second after start";
  rows.push_back({"Next run", next});
  if (inProgress) {
    const auto& status = facts.agent->status;
    rows.push_back({"Run", text.paint("in progress", Colour::yellow) + " since " +
                               when(status.runStartedAt) +
                               (status.runPending ? "; one more pass requested" : "")});
  }
  const auto windows = windowsNow(facts);
  if (!facts.planner.policy()) {
    rows.push_back({"Windows", "none: every moment is allowed"});
  } else if (windows.allowed) {
    rows.push_back({"Windows", text.paint("allowed now", Colour::green)});
  } else {
    rows.push_back({"Windows", text.paint("blocked now", Colour::red) + ": " + windows.reason +
                                   "; next allowed " + when(windows.nextAllowed)});
  }
  const auto lastRun = facts.agent ? facts.agent->status.lastRunDate : facts.lastRun;
  const auto count = facts.agent ? facts.agent->status.runCount : facts.runCount;
  std::string runs = std::to_string(count) + ", last " + when(lastRun) + "; every " +
                     core::durationDescription(facts.planner.interval());
  if (facts.planner.splay().count() > 0) {
    runs += "; this machine's RunSplay offset " + core::durationDescription(facts.planner.splay());
  }
  rows.push_back({"Runs", runs});
  std::string maintenance =
      std::to_string(facts.maintenanceCount) + ", last " + when(facts.lastMaintenance);
  if (facts.agent) {
    maintenance += facts.agent->status.maintenanceRunning
                       ? "; running now"
                       : "; next " + when(facts.agent->status.nextMaintenanceDate);
  }
  rows.push_back({"Maintenance", maintenance});
  const auto& items = facts.items.value_or(std::vector<core::UpdateItem>{});
  std::string listed = std::to_string(items.size()) + " pending";
  for (const auto& item : items) {
    listed += "\n" + item.friendlyName + " (" + item.id + ") " +
              item.installedVersion.value_or("not installed") + " \u2192 " + item.targetVersion +
              ", " + std::string(rawValue(item.state()));
  }
  rows.push_back({"Update items", listed});
  const auto counts = deferralCounts(facts);
  std::string deferred = counts.empty() ? "none" : "";
  for (const auto& [key, number] : counts) {
    if (!deferred.empty()) deferred += "\n";
    deferred += key.first + " " + key.second + ": " + std::to_string(number);
  }
  rows.push_back({"Deferrals", deferred});

  // Multi-line cells continue under their column.
  std::vector<std::vector<std::string>> lines;
  for (const auto& row : rows) {
    std::size_t start = 0;
    bool first = true;
    const std::string& cell = row[1];
    while (start <= cell.size()) {
      const auto end = cell.find('\n', start);
      const std::string part =
          cell.substr(start, end == std::string::npos ? std::string::npos : end - start);
      lines.push_back({first ? text.paint(row[0], Colour::bold) : "", first ? part : "  " + part});
      first = false;
      if (end == std::string::npos) break;
      start = end + 1;
    }
  }
  out << ConsoleText::aligned(lines, "");

  out << "\n" << text.paint("Policy", Colour::bold) << "\n";
  std::vector<std::vector<std::string>> policy{
      {"key", "value", "from", "read by", "the agent takes"}};
  for (const auto& key : facts.policyKeys) {
    if (key.source == "default") continue;
    policy.push_back({key.key, key.value ? ConsoleText::value(*key.value) : "", key.source,
                      key.road,
                      key.ignored ? text.paint(key.reading, Colour::yellow) : key.reading});
  }
  if (policy.size() == 1) {
    out << "  every key at its default\n";
  } else {
    out << ConsoleText::aligned(policy, "  ");
    out << "  every other key at its default\n";
  }
  for (const auto& problem : facts.problems) {
    out << text.paint("Problem: ", Colour::red) << problem << "\n";
  }
}

}  // namespace velmo::agent::console
