#pragma once

#include <optional>
#include <string>
#include <vector>

#include "agent/console/ConsoleInputs.h"
#include "core/values/PlistValue.h"
#include "mdm/PreferenceSnapshot.h"

namespace velmo::agent::console {

// One preference key the agent reads: where its value came from and what the
// agent makes of it.
struct PolicyKey {
  std::string domain;
  std::string key;
  // "defaults", "defaults, loose" or "snapshot": the road the agent reads it by.
  std::string road;
  // "managed", "root's store", "machine-wide" or "default".
  std::string source;
  std::optional<core::PlistValue> value;
  // The value as the agent takes it, in words.
  std::string reading;
  // The value is there but the agent can't use it.
  bool ignored = false;

  // Every key the agent reads, in the order of the administrators' table.
  static std::vector<PolicyKey> readAll(const ConsoleInputs& inputs,
                                        const mdm::PreferenceSnapshot& snapshot);
};

}  // namespace velmo::agent::console
