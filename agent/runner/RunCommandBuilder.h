#pragma once

#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace velmo::agent::run {

// The policy values one run's command lines are made from.
struct RunPolicy {
  bool updateAll = false;
  std::vector<std::string> updateAllExclusions{};
  std::vector<std::string> installOrUpdateIDs{};
  std::vector<std::string> updateOnlyIDs{};
  bool deferIfRunning = false;
  bool respectDND = false;
  bool respectMeetings = false;
  bool updateMAS = false;
  std::optional<std::string> updateChannel{};
  std::optional<std::string> integrityPolicyRaw{};
  bool disableSelfUpdate = false;
  bool enableMenuBarApp = false;
};

using Command = std::vector<std::string>;

// The command as log lines show it: its arguments joined by one blank.
std::string joined(const Command& command);

// Turns policy into the tool's command lines: the contract between the agent
// and the tool. A pure function of its inputs.
class RunCommandBuilder {
 public:
  RunCommandBuilder() = delete;

  // At most two commands: the install command (naming the tool's own entry
  // unless self-update is off), then the update-only or the update-all one,
  // each followed by the shared flags.
  static std::vector<Command> build(const RunPolicy& policy, bool runningAppsFirst);

  // The catalogue entry of the tool itself for a channel: trimmed and in
  // lower case, "rc", "preview"/"beta" and "dev" pick their label; anything
  // else is the stable one.
  static std::string_view updateChannelLabel(const std::optional<std::string>& channel);
};

}  // namespace velmo::agent::run
