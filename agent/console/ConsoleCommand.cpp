#include "agent/console/ConsoleCommand.h"

#include "agent/console/AgentFacts.h"
#include "agent/console/ExplainCommand.h"
#include "agent/console/InventoryReport.h"
#include "agent/console/LayeredUserDefaults.h"
#include "agent/console/PolicyFileLint.h"
#include "agent/console/PolicyLint.h"
#include "agent/console/PolicyProfile.h"
#include "agent/console/ProfileStores.h"
#include "agent/console/SchemaCommand.h"
#include "agent/console/StatusCommand.h"
#include "core/time/Iso8601DateFormatter.h"
#include "core/values/PropertyList.h"
#include "mdm/ManagedDomain.h"

#include <algorithm>
#include <filesystem>

namespace velmo::agent::console {
namespace {

// Notes plain, warnings yellow, errors red, then the count.
void printLint(const std::vector<PolicyLint::Diagnostic>& diagnostics, std::size_t files,
               bool coloured, std::ostream& out) {
  const ConsoleText text(coloured);
  for (const auto& diagnostic : diagnostics) {
    const std::string line = PolicyLint::line(diagnostic);
    switch (diagnostic.severity) {
      case PolicyLint::Severity::note:
        out << line << "\n";
        break;
      case PolicyLint::Severity::warning:
        out << text.paint(line, ConsoleText::Colour::yellow) << "\n";
        break;
      case PolicyLint::Severity::error:
        out << text.paint(line, ConsoleText::Colour::red) << "\n";
        break;
    }
  }
  out << files << " file" << (files == 1 ? "" : "s") << " checked, " << diagnostics.size()
      << " finding" << (diagnostics.size() == 1 ? "" : "s") << ".\n";
}

// An ISO 8601 option, when given; false, said on `err`, when it can't be read.
bool readMoment(const char* option, const std::optional<std::string>& text,
                std::optional<platform::TimePoint>& moment, std::ostream& err) {
  if (!text) return true;
  moment = core::Iso8601DateFormatter::date(*text);
  if (moment) return true;
  err << "Error: " << option
      << " takes an ISO 8601 moment with its zone, such as 2026-11-24T06:00:00Z or "
         "2026-11-24T07:00:00+01:00; not \""
      << *text << "\".\n";
  return false;
}

}  // namespace

int ConsoleCommand::lint(const Invocation& invocation, const ConsoleInputs& inputs, bool coloured,
                         std::ostream& out, std::ostream& err) {
  std::vector<std::filesystem::path> files;
  std::vector<PolicyLint::Diagnostic> diagnostics;
  if (invocation.paths.empty()) {
    for (const auto domain : mdm::kAllManagedDomains) {
      const auto name = mdm::rawValue(domain);
      for (const auto& path :
           {inputs.paths.managedPreferencesFile(name), inputs.paths.rootPreferencesFile(name),
            inputs.paths.machinePreferencesFile(name)}) {
        if (inputs.files.fileExists(path)) files.push_back(path);
      }
    }
  }
  for (const auto& given : invocation.paths) {
    const std::filesystem::path path(given);
    const auto listed = inputs.files.contentsOfDirectory(path, path, true);
    if (!listed.ok()) {
      files.push_back(path);
      continue;
    }
    std::vector<std::filesystem::path> found;
    for (const auto& entry : listed.value()) {
      const auto extension = entry.path.extension();
      if (extension == ".plist" || extension == ".mobileconfig") found.push_back(entry.path);
    }
    std::sort(found.begin(), found.end());
    if (found.empty())
      diagnostics.push_back({given, "", PolicyLint::Severity::warning,
                             "no .plist or .mobileconfig file in this folder."});
    files.insert(files.end(), found.begin(), found.end());
  }
  if (files.empty() && diagnostics.empty()) {
    err << "Error: no policy file under " << inputs.paths.root().string()
        << "; name the files or folders to check.\n";
    return kNothingReadStatus;
  }
  for (const auto& file : files) {
    auto found =
        PolicyFileLint::lintFile(inputs.files, file, inputs.clock.now(), inputs.timeZone());
    diagnostics.insert(diagnostics.end(), found.begin(), found.end());
  }
  if (invocation.json) {
    out << PolicyLint::json(diagnostics).dump(2) << "\n";
  } else {
    printLint(diagnostics, files.size(), coloured, out);
  }
  return PolicyLint::exitStatus(diagnostics);
}

int ConsoleCommand::reportField(const Invocation& invocation, const ConsoleInputs& inputs,
                                std::ostream& out, std::ostream& err) {
  const auto print = [&](const std::string& value) {
    out << (invocation.extensionAttribute ? "<result>" + value + "</result>" : value) << "\n";
  };
  const auto file = inputs.paths.inventoryReportFile();
  const auto bytes = inputs.files.readFile(file);
  const auto parsed = bytes.ok() ? core::PropertyList::parse(bytes.value()) : std::nullopt;
  const auto* report = parsed ? parsed->getIf<core::PlistDictionary>() : nullptr;
  if (!report) {
    err << "Error: the inventory report " << file.string()
        << (bytes.ok() ? " is damaged." : " can't be read: " + bytes.error()->description) << "\n";
    if (invocation.extensionAttribute) print("");
    return kNothingReadStatus;
  }
  const auto value = InventoryReport::field(*report, *invocation.field);
  print(value ? InventoryReport::text(*value) : "");
  return 0;
}

void ConsoleCommand::printExplanation(const Invocation& invocation, AgentFacts facts,
                                      const Moments& moments, const std::string& tool,
                                      bool coloured, std::ostream& out) {
  if (moments.lastRun) facts.lastRun = moments.lastRun;
  const auto explanation =
      ExplainCommand::explain(facts, moments.from.value_or(facts.now), invocation.days);
  if (invocation.json) {
    out << ExplainCommand::json(facts, explanation, tool).dump(2) << "\n";
  } else {
    ExplainCommand::printText(facts, explanation, tool, ConsoleText(coloured), out);
  }
}

int ConsoleCommand::explainProfile(const Invocation& invocation, const ConsoleInputs& inputs,
                                   const Moments& moments, bool coloured, std::ostream& out,
                                   std::ostream& err) {
  auto profile = PolicyProfile::read(inputs.files, *invocation.profile);
  if (profile.domains.empty()) {
    err << "Error: --profile " << *invocation.profile << ": " << profile.refusal << "\n";
    return kNothingReadStatus;
  }
  const ProfileStores stores(inputs.stores, std::move(profile.domains));
  const LayeredUserDefaults userDefaults(
      stores, std::string(mdm::rawValue(mdm::ManagedDomain::velmoAgent)));
  const ConsoleInputs deployed{inputs.paths, inputs.files, stores,         userDefaults,
                               inputs.clock, inputs.agent, inputs.timeZone};
  printExplanation(invocation, AgentFacts::gather(deployed), moments,
                   inputs.paths.toolExecutable().string(), coloured && !invocation.json, out);
  return 0;
}

int ConsoleCommand::run(const Invocation& invocation, const ConsoleInputs& inputs, bool coloured,
                        std::ostream& out, std::ostream& err) {
  using Kind = Invocation::Kind;
  Moments moments;
  if (!readMoment("--from", invocation.from, moments.from, err) ||
      !readMoment("--last-run", invocation.lastRun, moments.lastRun, err)) {
    return kNothingReadStatus;
  }
  if (invocation.kind == Kind::lint) return lint(invocation, inputs, coloured, out, err);
  if (invocation.kind == Kind::schema) return SchemaCommand::run(invocation, out, err);
  if (invocation.kind == Kind::status && invocation.field) {
    return reportField(invocation, inputs, out, err);
  }
  if (invocation.kind == Kind::explain && invocation.profile) {
    return explainProfile(invocation, inputs, moments, coloured, out, err);
  }
  const AgentFacts facts = AgentFacts::gather(inputs);
  if (!facts.readAnything) {
    err << "Error: nothing could be read: no agent answers on the system bus, and none of its "
           "files is under "
        << inputs.paths.root().string() << ".\n";
    for (const auto& problem : facts.problems) err << problem << "\n";
    return kNothingReadStatus;
  }
  const std::string tool = inputs.paths.toolExecutable().string();
  if (invocation.kind == Kind::explain) {
    printExplanation(invocation, facts, moments, tool, coloured && !invocation.json, out);
    return 0;
  }
  if (invocation.json) {
    out << StatusCommand::json(facts).dump(2) << "\n";
  } else {
    StatusCommand::printText(facts, ConsoleText(coloured), out);
  }
  return 0;
}

}  // namespace velmo::agent::console
