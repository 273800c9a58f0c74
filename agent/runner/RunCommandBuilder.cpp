#include "agent/runner/RunCommandBuilder.h"

#include <algorithm>
#include <set>

#include "core/items/PackageIntegrityPolicy.h"
#include "core/logging/Utf8.h"

namespace velmo::agent::run {
namespace {

std::string lowerCased(std::string_view text) {
  std::string result(text);
  std::transform(result.begin(), result.end(), result.begin(), [](unsigned char c) {
    return static_cast<char>(c >= 'A' && c <= 'Z' ? c - 'A' + 'a' : c);
  });
  return result;
}

bool contains(const std::vector<std::string>& list, const std::string& value) {
  return std::find(list.begin(), list.end(), value) != list.end();
}

std::vector<std::string> sharedFlags(const RunPolicy& policy) {
  std::vector<std::string> flags;
  if (policy.deferIfRunning) flags.emplace_back("--silent");
  if (policy.respectDND) flags.emplace_back("--respect-dnd");
  if (policy.respectMeetings) flags.emplace_back("--respect-meetings");
  if (policy.updateMAS) flags.emplace_back("--update-mas");
  if (policy.integrityPolicyRaw) {
    // An exact match, case included; anything else leaves the flag out.
    const std::string_view text = core::trimmedWhiteSpace(*policy.integrityPolicyRaw);
    if (auto integrity = core::packageIntegrityPolicyFromRawValue(text)) {
      flags.emplace_back("--integrity-policy");
      flags.emplace_back(core::rawValue(*integrity));
    }
  }
  if (policy.enableMenuBarApp) flags.emplace_back("--menu-bar-notification");
  return flags;
}

}  // namespace

std::string joined(const Command& command) {
  std::string text;
  for (const auto& argument : command) {
    if (!text.empty()) text += ' ';
    text += argument;
  }
  return text;
}

std::string_view RunCommandBuilder::updateChannelLabel(const std::optional<std::string>& channel) {
  const std::string text = channel ? lowerCased(core::trimmedWhiteSpace(*channel)) : std::string();
  if (text == "rc") return "marvenith-velmo-rc";
  if (text == "preview" || text == "beta") return "marvenith-velmo-preview";
  if (text == "dev") return "marvenith-velmo-dev";
  return "marvenith-velmo";
}

std::vector<Command> RunCommandBuilder::build(const RunPolicy& policy, bool runningAppsFirst) {
  std::vector<Command> commands;

  Command install{"install"};
  if (!policy.disableSelfUpdate) install.emplace_back(updateChannelLabel(policy.updateChannel));
  install.insert(install.end(), policy.installOrUpdateIDs.begin(), policy.installOrUpdateIDs.end());
  if (runningAppsFirst) install.emplace_back("--running-first");
  if (!policy.disableSelfUpdate || !policy.installOrUpdateIDs.empty()) {
    commands.push_back(std::move(install));
  }

  if (!policy.updateAll) {
    if (!policy.updateOnlyIDs.empty()) {
      Command updateOnly{"install"};
      for (const auto& id : policy.updateOnlyIDs) {
        if (!contains(policy.installOrUpdateIDs, id)) updateOnly.push_back(id);
      }
      updateOnly.emplace_back("--update-only");
      if (runningAppsFirst) updateOnly.emplace_back("--running-first");
      commands.push_back(std::move(updateOnly));
    }
  } else {
    Command updateAll{"update-all", "--respect-exclusions-preference"};
    if (runningAppsFirst) updateAll.emplace_back("--running-first");
    // Installed-or-updated IDs are left alone by the update-all pass. The
    // order of a set is unspecified to the tool; sorted keeps logs stable.
    std::set<std::string> exclusions(policy.installOrUpdateIDs.begin(),
                                     policy.installOrUpdateIDs.end());
    exclusions.insert(policy.updateAllExclusions.begin(), policy.updateAllExclusions.end());
    if (!exclusions.empty()) {
      updateAll.emplace_back("--exclusions");
      updateAll.insert(updateAll.end(), exclusions.begin(), exclusions.end());
    }
    commands.push_back(std::move(updateAll));
  }

  const std::vector<std::string> flags = sharedFlags(policy);
  for (auto& command : commands) command.insert(command.end(), flags.begin(), flags.end());
  return commands;
}

}  // namespace velmo::agent::run
