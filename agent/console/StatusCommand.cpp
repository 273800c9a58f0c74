#include "agent/console/StatusCommand.h"

#include "agent/console/StatusView.h"
#include "core/time/TimeInterval.h"

namespace velmo::agent::console {
namespace {

using nlohmann::json;
using Colour = ConsoleText::Colour;
using Rows = std::vector<std::vector<std::string>>;

json date(const std::optional<platform::TimePoint>& value) {
  return value ? json(ConsoleText::isoDate(*value)) : json(nullptr);
}

json agentJSON(const std::optional<StatusView::Agent>& agent) {
  if (!agent) return {{"running", false}};
  return {{"running", true},
          {"pid", agent->pid ? json(*agent->pid) : json(nullptr)},
          {"version", agent->version},
          {"startedAt", ConsoleText::isoDate(agent->startedAt)},
          {"uptimeSeconds", agent->up.count()}};
}

json runsJSON(const StatusView::Runs& runs) {
  return {{"count", runs.count},
          {"last", date(runs.last)},
          {"intervalSeconds", runs.interval.count()},
          {"splayOffsetSeconds", runs.splayOffset.count()},
          {"inProgress", runs.inProgress},
          {"startedAt", date(runs.startedAt)},
          {"pending", runs.pending},
          {"heldBy", runs.heldBy.empty() ? json(nullptr) : json(runs.heldBy)}};
}

json windowsJSON(const StatusView::Windows& windows) {
  return {{"allowedNow", windows.allowedNow},
          {"reason", windows.allowedNow ? json(nullptr) : json(windows.reason)},
          {"nextAllowed", date(windows.nextAllowed)},
          {"userRunsAnyTime", windows.userRunsAnyTime}};
}

json maintenanceJSON(const StatusView::Maintenance& maintenance) {
  return {{"count", maintenance.count},
          {"last", date(maintenance.last)},
          {"next", date(maintenance.next)},
          {"running", maintenance.running}};
}

json policyJSON(const std::vector<PolicyKey>& keys) {
  json out = json::array();
  for (const auto& key : keys) {
    out.push_back({{"domain", key.domain},
                   {"key", key.key},
                   {"road", key.road},
                   {"source", key.source},
                   {"value", key.value ? ConsoleText::plistJSON(*key.value) : json(nullptr)},
                   {"reading", key.reading},
                   {"ignored", key.ignored}});
  }
  return out;
}

json itemsJSON(const std::vector<core::UpdateItem>& items) {
  json out = json::array();
  for (const auto& item : items) {
    // Built from the item's own JSON, so the fields keep the state file's names.
    const auto text = item.jsonText();
    out.push_back(text ? json::parse(*text, nullptr, false) : json({{"id", item.id}}));
  }
  return out;
}

json deferralsJSON(const std::vector<StatusView::Deferred>& deferrals) {
  json out = json::array();
  for (const auto& each : deferrals) {
    out.push_back({{"app", each.app}, {"version", each.version}, {"count", each.count}});
  }
  return out;
}

json render(const StatusView& view) {
  json out;
  out["now"] = ConsoleText::isoDate(view.now);
  out["timeZone"] = view.timeZone;
  out["agent"] = agentJSON(view.agent);
  out["nextRun"] = date(view.nextRun);
  out["nextRunFrom"] = view.agent ? "agent" : "planned";
  out["runs"] = runsJSON(view.runs);
  out["windows"] = windowsJSON(view.windows);
  out["conditions"] = view.conditions;
  out["maintenance"] = maintenanceJSON(view.maintenance);
  out["policy"] = policyJSON(view.policy);
  out["items"] = itemsJSON(view.items);
  out["deferrals"] = deferralsJSON(view.deferrals);
  out["problems"] = view.problems;
  return out;
}

// The rows of the summary, in the view's words, coloured by `text`.
class TextRows {
 public:
  TextRows(const StatusView& view, const ConsoleText& text) : view_(view), text_(text) {}

  Rows rows() const {
    Rows rows{
        {"Agent", agent()},
        {"Now", ConsoleText::localDate(view_.now, view_.timeZone) + " (" + view_.timeZone + ")"},
        {"Next run", nextRun()}};
    if (view_.runs.inProgress) rows.push_back({"Run", run()});
    rows.push_back({"Windows", windows()});
    if (!view_.conditions.empty()) rows.push_back({"Conditions", conditions()});
    rows.push_back({"Runs", runs()});
    rows.push_back({"Maintenance", maintenance()});
    rows.push_back({"Update items", items()});
    rows.push_back({"Deferrals", deferrals()});
    return rows;
  }

 private:
  std::string when(const std::optional<platform::TimePoint>& date) const {
    if (!date) return "none";
    return ConsoleText::localDate(*date, view_.timeZone) + " (" +
           ConsoleText::relative(*date, view_.now) + ")";
  }

  std::string agent() const {
    if (!view_.agent) {
      return text_.paint("not running", Colour::red) +
             " (no answer on the system bus); times below are planned";
    }
    const auto& agent = *view_.agent;
    return text_.paint("running", Colour::green) + ", version " + agent.version +
           (agent.pid ? ", pid " + std::to_string(*agent.pid) : std::string()) + ", up " +
           core::durationDescription(core::TimeInterval(
               static_cast<double>(std::max<std::int64_t>(agent.up.count(), 0))));
  }

  std::string nextRun() const {
    std::string next = view_.runs.inProgress ? "after the run in progress" : when(view_.nextRun);
    if (!view_.agent) next += ", once started: a run 1 second after start";
    return next;
  }

  std::string run() const {
    return text_.paint("in progress", Colour::yellow) + " since " + when(view_.runs.startedAt) +
           (view_.runs.pending ? "; one more pass requested" : "");
  }

  std::string windows() const {
    const auto& windows = view_.windows;
    if (!windows.restricted) return "none: every moment is allowed";
    if (windows.allowedNow) return text_.paint("allowed now", Colour::green);
    return text_.paint("blocked now", Colour::red) + ": " + windows.reason + "; next allowed " +
           when(windows.nextAllowed);
  }

  std::string conditions() const {
    std::string line;
    for (const auto& each : view_.conditions) line += (line.empty() ? "" : ", ") + each;
    if (!view_.runs.heldBy.empty()) {
      line += "; " + text_.paint("held now", Colour::red) + ": " + view_.runs.heldBy;
    }
    return line;
  }

  std::string runs() const {
    const auto& runs = view_.runs;
    std::string line = std::to_string(runs.count) + ", last " + when(runs.last) + "; every " +
                       core::durationDescription(runs.interval);
    if (runs.splayOffset.count() > 0) {
      line += "; this machine's RunSplay offset " + core::durationDescription(runs.splayOffset);
    }
    return line;
  }

  std::string maintenance() const {
    const auto& maintenance = view_.maintenance;
    std::string line = std::to_string(maintenance.count) + ", last " + when(maintenance.last);
    if (view_.agent) {
      line += maintenance.running ? "; running now" : "; next " + when(maintenance.next);
    }
    return line;
  }

  std::string items() const {
    std::string listed = std::to_string(view_.items.size()) + " pending";
    for (const auto& item : view_.items) {
      listed += "\n" + item.friendlyName + " (" + item.id + ") " +
                item.installedVersion.value_or("not installed") + " \u2192 " + item.targetVersion +
                ", " + std::string(rawValue(item.state()));
    }
    return listed;
  }

  std::string deferrals() const {
    std::string deferred = view_.deferrals.empty() ? "none" : "";
    for (const auto& each : view_.deferrals) {
      if (!deferred.empty()) deferred += "\n";
      deferred += each.app + " " + each.version + ": " + std::to_string(each.count);
    }
    return deferred;
  }

  const StatusView& view_;
  const ConsoleText& text_;
};

// Multi-line cells continue under their column.
Rows continued(const Rows& rows, const ConsoleText& text) {
  Rows lines;
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
  return lines;
}

// The keys set anywhere; those at their default are only counted.
void printPolicy(const std::vector<PolicyKey>& keys, const ConsoleText& text, std::ostream& out) {
  out << "\n" << text.paint("Policy", Colour::bold) << "\n";
  Rows policy{{"key", "value", "from", "read by", "the agent takes"}};
  for (const auto& key : keys) {
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
}

}  // namespace

std::optional<platform::TimePoint> StatusCommand::nextRun(const AgentFacts& facts) {
  if (facts.agent) return facts.agent->status.nextRunDate;
  return facts.planner.fromLastRun(facts.lastRun, facts.now).start;
}

json StatusCommand::json(const AgentFacts& facts) { return render(StatusView::from(facts)); }

void StatusCommand::printText(const AgentFacts& facts, const ConsoleText& text, std::ostream& out) {
  const StatusView view = StatusView::from(facts);
  out << ConsoleText::aligned(continued(TextRows(view, text).rows(), text), "");
  printPolicy(view.policy, text, out);
  for (const auto& problem : view.problems) {
    out << text.paint("Problem: ", Colour::red) << problem << "\n";
  }
}

}  // namespace velmo::agent::console
