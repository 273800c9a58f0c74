#include "agent/run/AgentCommand.h"

#include <CLI/CLI.hpp>

namespace velmo::agent::run {

std::optional<int> AgentCommand::parseAndValidate(int argc, const char* const* argv,
                                                  const std::string& versionString,
                                                  const Environment& environment) {
  CLI::App app("", "velmo-agent");
  app.set_version_flag("--version", versionString);
  app.add_subcommand("start", "Start the Velmo Agent");
  // No subcommand means `start`: it is the only one and the default.
  app.require_subcommand(0, 1);
  try {
    app.parse(argc, argv);
  } catch (const CLI::ParseError& error) {
    return app.exit(error, environment.standardOutput, environment.standardError);
  }
  return validate(environment);
}

std::optional<int> AgentCommand::validate(const Environment& environment) {
  const auto tool = environment.paths.toolExecutable();
  if (!environment.files.fileExists(tool)) {
    environment.standardError << "Error: Velmo command line tool does not exist at: "
                              << tool.string() << ".\n";
    return kToolMissingStatus;
  }
  if (environment.host.effectiveUserId() != 0) {
    environment.standardError << "Error: Velmo Agent must be run as root.\n";
    return kNotRootStatus;
  }
  return std::nullopt;
}

}  // namespace velmo::agent::run
