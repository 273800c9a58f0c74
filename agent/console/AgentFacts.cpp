#include "agent/console/AgentFacts.h"

#include "agent/run/PlistManager.h"
#include "agent/run/RunSplay.h"
#include "agent/run/VelmoRunJob.h"
#include "core/logging/CustomLogger.h"
#include "core/plist/PropertyList.h"
#include "mdm/ManagedDomain.h"

namespace velmo::agent::console {
namespace {

// A file that is there but doesn't parse; a missing file is no problem.
void checkPlist(const ConsoleInputs& inputs, const std::filesystem::path& path,
                std::vector<std::string>& problems, bool& readAnything) {
  if (!inputs.files.fileExists(path)) return;
  const auto bytes = inputs.files.readFile(path);
  if (const auto* error = bytes.error()) {
    problems.push_back(path.string() + " can't be read: " + error->description);
    return;
  }
  const auto root = core::PropertyList::parse(bytes.value());
  if (!root || !root->is<core::PlistDictionary>()) {
    problems.push_back(path.string() + " is not a property list of keys; it counts as empty.");
    return;
  }
  readAnything = true;
}

}  // namespace

AgentFacts AgentFacts::gather(const ConsoleInputs& inputs) {
  const std::string zone = inputs.timeZone();
  const auto config = policy::VelmoRunConfig::read(inputs.userDefaults);
  const auto splay = run::RunSplay::offset(run::RunSplay::readMachineId(inputs.files, inputs.paths),
                                           config.runSplay);
  AgentFacts facts{.now = inputs.clock.now(),
                   .timeZone = zone,
                   .config = config,
                   .planner = run::RunPlanner(config, inputs.userDefaults, zone, splay)};
  const std::set<mdm::ManagedDomain> domains(mdm::kAllManagedDomains.begin(),
                                             mdm::kAllManagedDomains.end());
  const auto snapshot = mdm::PreferenceSnapshot::load(inputs.stores, domains);
  static const core::CustomLogger logger("Console");
  facts.runPolicy = run::VelmoRunJob::readPolicy(inputs.userDefaults, snapshot, logger);
  facts.policyKeys = PolicyKey::readAll(inputs, snapshot);

  for (const auto domain : mdm::kAllManagedDomains) {
    const auto name = mdm::rawValue(domain);
    for (const auto& path :
         {inputs.paths.managedPreferencesFile(name), inputs.paths.rootPreferencesFile(name),
          inputs.paths.machinePreferencesFile(name)}) {
      checkPlist(inputs, path, facts.problems, facts.readAnything);
    }
  }

  const run::PlistManager state(inputs.files, inputs.paths.agentStateFile());
  const auto integer = [&](run::PlistKey key) -> std::int64_t {
    const auto value = state.value(key);
    const auto* number = value ? value->getIf<std::int64_t>() : nullptr;
    return number ? *number : 0;
  };
  const auto date = [&](run::PlistKey key) -> std::optional<platform::TimePoint> {
    const auto value = state.value(key);
    const auto* stamp = value ? value->getIf<core::PlistDate>() : nullptr;
    if (!stamp) return std::nullopt;
    return stamp->value;
  };
  facts.runCount = integer(run::PlistKey::updateTaskRunCount);
  facts.lastRun = date(run::PlistKey::lastUpdateTaskRun);
  facts.maintenanceCount = integer(run::PlistKey::maintenanceTaskRunCount);
  facts.lastMaintenance = date(run::PlistKey::lastMaintenanceTaskRun);

  const auto itemsFile = inputs.paths.updateStateFile();
  if (inputs.files.fileExists(itemsFile)) {
    const auto bytes = inputs.files.readFile(itemsFile);
    if (bytes.ok()) facts.items = core::UpdateItem::arrayFromJSONText(bytes.value());
    if (facts.items) {
      facts.readAnything = true;
    } else {
      facts.problems.push_back(itemsFile.string() + " can't be read as a list of update items.");
    }
  } else {
    facts.items.emplace();
  }
  const auto deferralsFile = inputs.paths.deferralsFile();
  if (inputs.files.fileExists(deferralsFile)) {
    const auto bytes = inputs.files.readFile(deferralsFile);
    if (bytes.ok()) facts.deferrals = core::decodeDeferralMap(bytes.value());
    if (facts.deferrals) {
      facts.readAnything = true;
    } else {
      facts.problems.push_back(deferralsFile.string() +
                               " can't be read as deferrals; the agent reads it as empty.");
    }
  } else {
    facts.deferrals.emplace();
  }
  facts.agent = inputs.agent.read();
  if (facts.agent) facts.readAnything = true;
  return facts;
}

}  // namespace velmo::agent::console
