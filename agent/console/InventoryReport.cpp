#include "agent/console/InventoryReport.h"

#include <utility>

#include "agent/console/ConsoleText.h"
#include "core/time/VelmoFormatters.h"

namespace velmo::agent::console {
namespace {

using core::PlistArray;
using core::PlistDate;
using core::PlistDictionary;
using core::PlistValue;

// Sets `key` only when there is a value: an absent key reads as "not known".
void setDate(PlistDictionary& out, const char* key,
             const std::optional<platform::TimePoint>& date) {
  if (date) out[key] = PlistDate{*date};
}

PlistDictionary lastRunOf(const run::LastRun& run) {
  return {{"Kind", run.userInitiated ? "user" : "scheduled"},
          {"StartedAt", PlistDate{run.startedAt}},
          {"EndedAt", PlistDate{run.endedAt}},
          {"Result", run.result},
          {"Installs", run.installs}};
}

PlistArray itemsOf(const StatusView& view, const InventoryReport::Live& live) {
  PlistArray items;
  for (const auto& item : view.items) {
    PlistDictionary entry{
        {"ID", item.id}, {"Name", item.friendlyName}, {"TargetVersion", item.targetVersion}};
    if (item.installedVersion) entry["InstalledVersion"] = *item.installedVersion;
    const auto since = live.listedSince.find(item.id);
    entry["ListedSince"] = PlistDate{since == live.listedSince.end() ? view.now : since->second};
    items.emplace_back(std::move(entry));
  }
  return items;
}

PlistArray deferralsOf(const StatusView& view) {
  PlistArray deferrals;
  for (const auto& each : view.deferrals) {
    PlistDictionary entry{{"App", each.app}, {"Version", each.version}, {"Count", each.count}};
    setDate(entry, "Last", each.last);
    deferrals.emplace_back(std::move(entry));
  }
  return deferrals;
}

PlistArray errorsOf(const InventoryReport::Live& live) {
  PlistArray errors;
  for (const auto& line : live.recentErrors) {
    errors.emplace_back(PlistDictionary{{"Date", PlistDate{line.date}}, {"Text", line.text}});
  }
  return errors;
}

// The keys an administrator set, as the stores hold them: the rest are defaults.
PlistDictionary policyOf(const StatusView& view) {
  PlistDictionary policy;
  for (const auto& key : view.policy) {
    if (key.value && key.source != "default") policy[key.key] = *key.value;
  }
  return policy;
}

void setRuns(PlistDictionary& report, const StatusView& view, const InventoryReport::Live& live) {
  report["RunCount"] = view.runs.count;
  setDate(report, "LastRunDate", view.runs.last);
  if (live.lastRun) report["LastRun"] = lastRunOf(*live.lastRun);
  setDate(report, "NextRun", view.nextRun);
  report["RunInProgress"] = view.runs.inProgress;
  report["RunAllowedNow"] = view.windows.allowedNow;
  if (!view.windows.allowedNow) report["RunNotAllowedReason"] = view.windows.reason;
  setDate(report, "NextAllowedRun", view.windows.nextAllowed);
  if (!view.runs.heldBy.empty()) report["RunsHeldBy"] = view.runs.heldBy;
}

}  // namespace

PlistDictionary InventoryReport::build(const StatusView& view, const Live& live) {
  PlistDictionary report{{"ReportDate", PlistDate{view.now}}};
  if (view.agent) {
    report["AgentVersion"] = view.agent->version;
    report["StartedAt"] = PlistDate{view.agent->startedAt};
  }
  setRuns(report, view, live);
  report["PendingItems"] = itemsOf(view, live);
  report["PendingItemCount"] = static_cast<std::int64_t>(view.items.size());
  report["Deferrals"] = deferralsOf(view);
  report["RecentErrors"] = errorsOf(live);
  report["Policy"] = policyOf(view);
  return report;
}

std::map<std::string, platform::TimePoint, std::less<>> InventoryReport::listedSince(
    const PlistDictionary& report) {
  std::map<std::string, platform::TimePoint, std::less<>> since;
  const auto items = report.find("PendingItems");
  const auto* array = items == report.end() ? nullptr : items->second.getIf<PlistArray>();
  if (!array) return since;
  for (const auto& item : *array) {
    const auto* entry = item.getIf<PlistDictionary>();
    if (!entry) continue;
    const auto id = entry->find("ID");
    const auto date = entry->find("ListedSince");
    if (id == entry->end() || date == entry->end()) continue;
    const auto* text = id->second.getIf<std::string>();
    const auto* when = date->second.getIf<PlistDate>();
    if (text && when) since.emplace(*text, when->value);
  }
  return since;
}

std::optional<PlistValue> InventoryReport::field(const PlistDictionary& report,
                                                 std::string_view name) {
  const PlistDictionary* level = &report;
  while (true) {
    const auto dot = name.find('.');
    const auto found = level->find(name.substr(0, dot));
    if (found == level->end()) return std::nullopt;
    if (dot == std::string_view::npos) return found->second;
    level = found->second.getIf<PlistDictionary>();
    if (!level) return std::nullopt;
    name.remove_prefix(dot + 1);
  }
}

std::string InventoryReport::text(const PlistValue& value) {
  if (const auto* text = value.getIf<std::string>()) return *text;
  if (const auto* date = value.getIf<PlistDate>())
    return core::VelmoFormatters::iso8601(date->value);
  return ConsoleText::plistJSON(value).dump();
}

}  // namespace velmo::agent::console
