#pragma once

#include <optional>
#include <ostream>
#include <string>
#include <variant>

#include "agent/console/Invocation.h"
#include "platform/FileManager.h"
#include "platform/Host.h"
#include "platform/Paths.h"

namespace velmo::agent {

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

  using Invocation = console::Invocation;

  // Parses the arguments. Gives the status to exit with (help, --version, a
  // usage error), or what to do.
  static std::variant<int, Invocation> parse(int argc, const char* const* argv,
                                             const std::string& versionString,
                                             std::ostream& standardOutput,
                                             std::ostream& standardError);

  // Parses the arguments and, for `start`, makes the checks, the tool's
  // first. Returns the status to exit with, or nothing when the command
  // should go on.
  static std::optional<int> parseAndValidate(int argc, const char* const* argv,
                                             const std::string& versionString,
                                             const Environment& environment);

  // The two checks alone; each writes its message and gives its status.
  static std::optional<int> validate(const Environment& environment);
};

}  // namespace velmo::agent
