#pragma once

#include <optional>
#include <string>
#include <vector>

namespace velmo::agent::console {

// What the command line asks for: the agent itself, or one of the console's
// commands with its options.
struct Invocation {
  enum class Kind { start, status, explain, lint, schema };
  Kind kind = Kind::start;
  bool json = false;
  // `status` only: one value of the inventory report by name, and whether to
  // print it as an extension attribute, inside <result>…</result>.
  std::optional<std::string> field{};
  bool extensionAttribute = false;
  // `explain` only: ISO 8601, such as 2026-11-24T06:00:00Z; none means now.
  std::optional<std::string> from{};
  int days = 7;
  // `explain` only: the profile or plain preference list to explain in place
  // of the managed stores, and the last run to plan from in place of the one
  // the state file records (ISO 8601, as `from`).
  std::optional<std::string> profile{};
  std::optional<std::string> lastRun{};
  // `lint` only: property lists, or folders of them; none means the live stores.
  std::vector<std::string> paths{};
  // `schema` only: "jamf" (a JSON schema) or "manifest"; the domain, none
  // meaning the agent's own.
  std::string format = "jamf";
  std::optional<std::string> domain{};
};

}  // namespace velmo::agent::console
