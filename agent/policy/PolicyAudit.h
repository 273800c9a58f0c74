#pragma once

#include <string>
#include <vector>

#include "agent/policy/VelmoRunConfig.h"

namespace velmo::agent::policy {

// What changed between two run policies, key by key, for the log: a history
// an administrator can search by key.
class PolicyAudit {
 public:
  struct Change {
    std::string key;
    // The whole old and new value, as text: "unset", "none", "true", "3600",
    // "firefox, zoom", "Mon, Wed 12:00–13:30; Tue 02:00–03:00".
    std::string before;
    std::string after;
    // One log line: "Policy RunInterval: 14400 → 3600.", windows and IDs as
    // additions and removals: "Policy GlobalAllowWindows: + Mon 12:00–13:30; − Tue 02:00–03:00."
    std::string line;
  };

  // In the order of the keys' table; nothing when the policies are the same.
  static std::vector<Change> changes(const VelmoRunConfig& before, const VelmoRunConfig& after);
};

}  // namespace velmo::agent::policy
