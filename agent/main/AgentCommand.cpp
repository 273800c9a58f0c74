#include "agent/main/AgentCommand.h"

#include <CLI/CLI.hpp>

namespace velmo::agent {

std::variant<int, AgentCommand::Invocation> AgentCommand::parse(int argc, const char* const* argv,
                                                                const std::string& versionString,
                                                                std::ostream& standardOutput,
                                                                std::ostream& standardError) {
  CLI::App app("", "velmo-agent");
  app.set_version_flag("--version", versionString);
  Invocation invocation;
  app.add_subcommand("start", "Start the Velmo Agent (as root)");
  auto* status = app.add_subcommand("status", "Show the policy, runs, items and the running agent");
  status->add_flag("--json", invocation.json, "One JSON object");
  std::string attribute;
  auto* field = status->add_option("--field", invocation.field,
                                   "One value of the inventory report, such as NextRun");
  auto* ea = status->add_option("--ea", attribute,
                                "The same, as an extension attribute: <result>…</result>");
  field->excludes(ea);
  auto* explain = app.add_subcommand(
      "explain", "Show when runs may start over some days, why, and their command lines");
  explain->add_option("--from", invocation.from, "ISO 8601 moment, such as 2026-11-24T06:00:00Z");
  explain->add_option("--days", invocation.days, "How many days")->check(CLI::Range(1, 366));
  explain->add_option("--profile", invocation.profile,
                      "A .mobileconfig or <domain>.plist to explain instead of the managed stores");
  explain->add_option("--last-run", invocation.lastRun,
                      "ISO 8601 moment of the last run, instead of the state file's");
  explain->add_flag("--json", invocation.json, "One JSON object");
  auto* lint = app.add_subcommand(
      "lint", "Check profiles for keys, types, windows and IDs the agent ignores or refuses");
  lint->add_option("path", invocation.paths,
                   "A property list, or a folder of <domain>.plist files; none: the live stores");
  lint->add_flag("--json", invocation.json, "One JSON object");
  auto* schema = app.add_subcommand(
      "schema", "Print the managed keys as a schema to import into a management tool");
  schema->add_option("--format", invocation.format, "jamf (JSON schema) or manifest (plist)")
      ->check(CLI::IsMember({"jamf", "manifest"}));
  schema->add_option("--domain", invocation.domain,
                     "com.marvenith.velmo-agent (default), -notifier, or com.marvenith.velmo");
  // No subcommand means `start`: it is the default.
  app.require_subcommand(0, 1);
  try {
    app.parse(argc, argv);
  } catch (const CLI::ParseError& error) {
    return app.exit(error, standardOutput, standardError);
  }
  if (status->parsed()) invocation.kind = Invocation::Kind::status;
  if (ea->count() > 0) {
    invocation.field = attribute;
    invocation.extensionAttribute = true;
  }
  if (explain->parsed()) invocation.kind = Invocation::Kind::explain;
  if (lint->parsed()) invocation.kind = Invocation::Kind::lint;
  if (schema->parsed()) invocation.kind = Invocation::Kind::schema;
  return invocation;
}

std::optional<int> AgentCommand::parseAndValidate(int argc, const char* const* argv,
                                                  const std::string& versionString,
                                                  const Environment& environment) {
  const auto parsed =
      parse(argc, argv, versionString, environment.standardOutput, environment.standardError);
  if (const auto* status = std::get_if<int>(&parsed)) return *status;
  if (std::get<Invocation>(parsed).kind != Invocation::Kind::start) return std::nullopt;
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

}  // namespace velmo::agent
