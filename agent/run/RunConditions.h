#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "agent/policy/VelmoRunConfig.h"
#include "platform/PowerSource.h"

namespace velmo::agent::run {

// Whether the machine's power and network let a scheduled run start, by the
// run policy's conditions. A condition whose service doesn't answer counts as
// met: a desktop without a power service is never held for ever.
class RunConditions {
 public:
  struct Observed {
    // None: no power service answers.
    std::optional<platform::PowerState> power{};
    // None: no network service answers, or it doesn't know.
    std::optional<bool> metered{};
  };
  struct Verdict {
    bool runsNow = true;
    // Why not, with the key: "on battery (RunOnlyOnACPower)".
    std::string reason{};
  };

  static Verdict decide(const policy::VelmoRunConfig& config, const Observed& observed);
  // The conditions set, in words with their keys: "mains power (RunOnlyOnACPower)".
  static std::vector<std::string> described(const policy::VelmoRunConfig& config);
};

}  // namespace velmo::agent::run
