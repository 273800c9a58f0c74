#pragma once

#include <ostream>

#include <nlohmann/json.hpp>

#include "agent/console/Invocation.h"
#include "core/values/PlistValue.h"
#include "mdm/ManagedDomain.h"

namespace velmo::agent::console {

// `schema`: the managed keys of one domain, from the key table, as the
// documents administrators import into their management tools: a JSON
// schema for custom settings, or a profile manifest.
class SchemaCommand {
 public:
  // 0, or 1 with a message for a domain the agent doesn't read or an unknown format.
  static int run(const Invocation& invocation, std::ostream& out, std::ostream& err);

  static nlohmann::json jsonSchema(mdm::ManagedDomain domain);
  static core::PlistDictionary manifest(mdm::ManagedDomain domain);
};

}  // namespace velmo::agent::console
