#include "agent/console/AgentFacts.h"

#include "agent/run/PlistManager.h"
#include "agent/run/RunSplay.h"
#include "agent/run/VelmoRunJob.h"
#include "core/logging/CustomLogger.h"
#include "core/values/PropertyList.h"
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

// Every store of every domain the agent reads.
void checkPreferenceFiles(const ConsoleInputs& inputs, AgentFacts& facts) {
  for (const auto domain : mdm::kAllManagedDomains) {
    const auto name = mdm::rawValue(domain);
    for (const auto& path :
         {inputs.paths.managedPreferencesFile(name), inputs.paths.rootPreferencesFile(name),
          inputs.paths.machinePreferencesFile(name)}) {
      checkPlist(inputs, path, facts.problems, facts.readAnything);
    }
  }
}

// The counts and dates runs and housekeeping leave in the agent's state file.
void readState(const ConsoleInputs& inputs, AgentFacts& facts) {
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
}

// A missing file holds nothing; one that is there but doesn't decode is a
// problem, said in `damaged`, and leaves `target` empty.
template <typename T, typename Decode>
void readList(const ConsoleInputs& inputs, const std::filesystem::path& file, Decode decode,
              const std::string& damaged, std::optional<T>& target, AgentFacts& facts) {
  if (!inputs.files.fileExists(file)) {
    target.emplace();
    return;
  }
  const auto bytes = inputs.files.readFile(file);
  if (bytes.ok()) target = decode(bytes.value());
  if (target) {
    facts.readAnything = true;
  } else {
    facts.problems.push_back(file.string() + damaged);
  }
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
  checkPreferenceFiles(inputs, facts);
  readState(inputs, facts);
  readList(inputs, inputs.paths.updateStateFile(), core::UpdateItem::arrayFromJSONText,
           " can't be read as a list of update items.", facts.items, facts);
  readList(inputs, inputs.paths.deferralsFile(), core::decodeDeferralMap,
           " can't be read as deferrals; the agent reads it as empty.", facts.deferrals, facts);
  facts.agent = inputs.agent.read();
  if (facts.agent) facts.readAnything = true;
  return facts;
}

}  // namespace velmo::agent::console
