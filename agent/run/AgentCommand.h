#pragma once

#include <optional>
#include <ostream>
#include <string>

#include "platform/FileManager.h"
#include "platform/Host.h"
#include "platform/Paths.h"

namespace velmo::agent::run {

// The command line surface: `velmo-agent [start]`, --help, --version, and the
// two checks made before anything starts.
class AgentCommand {
 public:
  static constexpr int kNotRootStatus = 2;
  static constexpr int kToolMissingStatus = 3;

  struct Environment {
    const platform::Paths& paths;
    const platform::FileManager& files;
    const platform::Host& host;
    std::ostream& standardOutput;
    std::ostream& standardError;
  };

  // Parses the arguments and makes the checks, the tool's first. Returns the
  // status to exit with, or nothing when start-up should go on.
  static std::optional<int> parseAndValidate(int argc, const char* const* argv,
                                             const std::string& versionString,
                                             const Environment& environment);

  // The two checks alone; each writes its message and gives its status.
  static std::optional<int> validate(const Environment& environment);
};

}  // namespace velmo::agent::run
