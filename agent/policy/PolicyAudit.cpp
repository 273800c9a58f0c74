#include "agent/policy/PolicyAudit.h"

#include <algorithm>

#include "mdm/PreferenceConversions.h"

namespace velmo::agent::policy {
namespace {

constexpr std::string_view kArrow = " \u2192 ";

std::string joined(const std::vector<std::string>& parts, std::string_view separator,
                   std::string_view empty) {
  if (parts.empty()) return std::string(empty);
  std::string text;
  for (const auto& part : parts) {
    if (!text.empty()) text += separator;
    text += part;
  }
  return text;
}

std::vector<std::string> descriptions(const std::vector<core::VelmoTimeWindow>& windows) {
  std::vector<std::string> result;
  for (const auto& window : windows) result.push_back(window.description());
  return result;
}

// "+ added; − removed", each list in its own order.
std::string difference(const std::vector<std::string>& before,
                       const std::vector<std::string>& after, std::string_view separator) {
  std::vector<std::string> added;
  std::vector<std::string> removed;
  for (const auto& each : after) {
    if (std::find(before.begin(), before.end(), each) == before.end()) added.push_back(each);
  }
  for (const auto& each : before) {
    if (std::find(after.begin(), after.end(), each) == after.end()) removed.push_back(each);
  }
  std::string text;
  if (!added.empty()) text += "+ " + joined(added, separator, "");
  if (!removed.empty()) {
    if (!text.empty()) text += "; ";
    text += "\u2212 " + joined(removed, separator, "");
  }
  // Same members in another order.
  return text.empty() ? "reordered" : text;
}

}  // namespace

std::vector<PolicyAudit::Change> PolicyAudit::changes(const VelmoRunConfig& before,
                                                      const VelmoRunConfig& after) {
  std::vector<Change> result;
  const auto scalar = [&](std::string key, std::string old, std::string fresh) {
    if (old == fresh) return;
    std::string line = "Policy " + key + ": " + old + std::string(kArrow) + fresh + ".";
    result.push_back({std::move(key), std::move(old), std::move(fresh), std::move(line)});
  };
  const auto list = [&](std::string key, const std::vector<std::string>& old,
                        const std::vector<std::string>& fresh, std::string_view separator) {
    if (old == fresh) return;
    std::string line = "Policy " + key + ": " + difference(old, fresh, separator) + ".";
    result.push_back({std::move(key), joined(old, separator, "none"),
                      joined(fresh, separator, "none"), std::move(line)});
  };
  const auto interval = [](const std::optional<double>& seconds) {
    return seconds ? mdm::PreferenceConversions::string(*seconds).value_or("?") : "unset";
  };
  const auto flag = [](bool value) { return std::string(value ? "true" : "false"); };
  const auto ids = [](const std::set<std::string>& set) {
    return std::vector<std::string>(set.begin(), set.end());
  };

  scalar("RunInterval", interval(before.runInterval), interval(after.runInterval));
  scalar("RunSplay", interval(before.runSplay), interval(after.runSplay));
  list("GlobalAllowWindows", descriptions(before.globalAllowWindows),
       descriptions(after.globalAllowWindows), "; ");
  list("GlobalBlackoutWindows", descriptions(before.globalBlackoutWindows),
       descriptions(after.globalBlackoutWindows), "; ");
  scalar("AllowUserInitiatedOutsideWindows", flag(before.allowUserInitiatedOutsideWindows),
         flag(after.allowUserInitiatedOutsideWindows));
  scalar("EnableVelmoTuesdayWindow", flag(before.velmoTuesdayOnly), flag(after.velmoTuesdayOnly));
  scalar("UpdateAll", flag(before.updateAll), flag(after.updateAll));
  list("InstallOrUpdate", ids(before.installOrUpdate), ids(after.installOrUpdate), ", ");
  list("UpdateOnly", ids(before.updateOnly), ids(after.updateOnly), ", ");
  scalar("RunOnlyOnACPower", flag(before.runOnlyOnACPower), flag(after.runOnlyOnACPower));
  scalar("MinimumBatteryPercent", std::to_string(before.minimumBatteryPercent),
         std::to_string(after.minimumBatteryPercent));
  scalar("RunOnlyOnUnmeteredNetwork", flag(before.runOnlyOnUnmeteredNetwork),
         flag(after.runOnlyOnUnmeteredNetwork));
  return result;
}

}  // namespace velmo::agent::policy
