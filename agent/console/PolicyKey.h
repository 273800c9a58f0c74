#pragma once

#include <optional>
#include <span>
#include <string>
#include <vector>

#include "agent/console/ConsoleInputs.h"
#include "core/values/PlistValue.h"
#include "mdm/ManagedDomain.h"
#include "mdm/PreferenceSnapshot.h"

namespace velmo::agent::console {

// One preference key the agent reads: where its value came from and what the
// agent makes of it.
struct PolicyKey {
  enum class Kind { boolean, interval, splay, percent, text, channel, ids, windows };
  // How the agent reads a key: its strict defaults, its defaults read as the
  // platform's boolForKey does, or the loose snapshot of the managed domains.
  enum class Road { defaults, looseDefaults, snapshot };
  // One row of the key table, the one source of what the agent reads: lint,
  // status and the generated schemas all take it from here.
  struct Rule {
    mdm::ManagedDomain domain;
    const char* key;
    Road road;
    Kind kind;
    bool fallback = false;  // For Booleans.
    // The values a string may take; empty: any.
    std::span<const char* const> allowed{};
    const char* title = "";
    // One line: what the agent does with it.
    const char* description = "";
    // The agent's version that first read it.
    const char* since = "0.1.0";
  };

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
  static std::span<const Rule> rules();
  // Every key the agent reads, in the order of the administrators' table, as the stores hold it.
  static std::vector<PolicyKey> readAll(const ConsoleInputs& inputs,
                                        const mdm::PreferenceSnapshot& snapshot);
};

}  // namespace velmo::agent::console
