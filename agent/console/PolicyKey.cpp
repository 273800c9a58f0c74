#include "agent/console/PolicyKey.h"

#include <algorithm>

#include "agent/console/ConsoleText.h"
#include "agent/run/RunPlanner.h"
#include "agent/run/RunSplay.h"
#include "agent/runner/RunCommandBuilder.h"
#include "core/items/ToolIdentifier.h"
#include "core/plist/DefaultsValue.h"
#include "core/time/TimeInterval.h"
#include "core/time/VelmoTimeWindow.h"
#include "mdm/PreferenceConversions.h"

namespace velmo::agent::console {
namespace {

using mdm::ManagedDomain;

using Kind = PolicyKey::Kind;
using Road = PolicyKey::Road;
using KeyRule = PolicyKey::Rule;

std::string_view roadName(Road road) {
  switch (road) {
    case Road::defaults:
      return "defaults";
    case Road::looseDefaults:
      return "defaults, loose";
    case Road::snapshot:
      return "snapshot";
  }
  return "";
}

std::optional<core::PlistValue> lookUp(const std::optional<core::PlistDictionary>& values,
                                       std::string_view key) {
  if (!values) return std::nullopt;
  const auto found = values->find(key);
  if (found == values->end()) return std::nullopt;
  return found->second;
}

// An ID list as the agent takes it: how many IDs, and how many it refuses.
std::optional<std::string> idsReading(const core::PlistValue& value) {
  const auto ids = core::DefaultsValue<std::vector<std::string>>::from(value);
  if (!ids) return std::nullopt;
  const auto refused =
      static_cast<std::size_t>(std::count_if(ids->begin(), ids->end(), [](const std::string& id) {
        return !core::ToolIdentifier::isValid(id);
      }));
  const std::size_t kept = ids->size() - refused;
  std::string text = std::to_string(kept) + " ID" + (kept == 1 ? "" : "s");
  if (refused > 0) text += ", " + std::to_string(refused) + " refused";
  return text;
}

// The reading of a defaults-road value; none when the agent can't use it.
std::optional<std::string> defaultsReading(const KeyRule& rule, const core::PlistValue& value,
                                           const ConsoleInputs& inputs) {
  switch (rule.kind) {
    case Kind::boolean: {
      const auto flag = core::DefaultsValue<bool>::from(value);
      if (!flag) return std::nullopt;
      return std::string(*flag ? "true" : "false");
    }
    case Kind::interval: {
      const auto seconds = mdm::PreferenceConversions::real(value);
      if (!seconds) return std::nullopt;
      if (!run::RunPlanner::usableInterval(*seconds)) {
        return "not above 0: " + core::durationDescription(run::RunPlanner::kDefaultInterval) +
               ", with a warning";
      }
      return "every " + core::durationDescription(core::TimeInterval(*seconds));
    }
    case Kind::text:
    case Kind::channel: {
      const auto text = core::DefaultsValue<std::string>::from(value);
      if (!text) return std::nullopt;
      if (rule.kind == Kind::text) return "\"" + *text + "\"";
      return "the tool's entry " + std::string(run::RunCommandBuilder::updateChannelLabel(*text));
    }
    case Kind::ids:
      return idsReading(value);
    case Kind::percent: {
      const auto percent = core::DefaultsValue<std::int64_t>::from(value);
      if (!percent) return std::nullopt;
      return *percent <= 0 ? "any charge"
                           : "at least " + std::to_string(std::min<std::int64_t>(*percent, 100)) +
                                 "% on battery";
    }
    case Kind::splay: {
      const auto seconds = core::DefaultsValue<double>::from(value);
      if (!seconds) return std::nullopt;
      const auto offset =
          run::RunSplay::offset(run::RunSplay::readMachineId(inputs.files, inputs.paths), *seconds);
      return "this machine waits " + core::durationDescription(offset);
    }
    case Kind::windows: {
      const auto windows =
          core::VelmoTimeWindow::fromStoredList(inputs.userDefaults.object(rule.key));
      if (windows.empty()) return std::nullopt;
      std::string text;
      for (const auto& window : windows) {
        if (!text.empty()) text += "; ";
        text += ConsoleText::window(window);
      }
      return text;
    }
  }
  return std::nullopt;
}

// The reading of an unset or unusable value: what the agent uses instead.
std::string fallbackReading(const KeyRule& rule) {
  switch (rule.kind) {
    case Kind::boolean:
      return rule.fallback ? "true" : "false";
    case Kind::interval:
      return "every " + core::durationDescription(run::RunPlanner::kDefaultInterval);
    case Kind::splay:
      return "no spread";
    case Kind::percent:
      return "any charge";
    case Kind::channel:
      return "the tool's entry " +
             std::string(run::RunCommandBuilder::updateChannelLabel(std::nullopt));
    case Kind::windows:
      return "none";
    case Kind::ids:
      return "0 IDs";
    case Kind::text:
      return "unset";
  }
  return "";
}

// Where the key's value comes from: the managed store wins, then root's, then
// the machine-wide one, which the snapshot road never reads.
void findSource(const KeyRule& rule, const ConsoleInputs& inputs, PolicyKey& key) {
  const auto managed = lookUp(inputs.stores.managedValues(key.domain), rule.key);
  const auto root = lookUp(inputs.stores.copyAllValues(key.domain), rule.key);
  const auto machine = rule.road == Road::snapshot
                           ? std::nullopt
                           : lookUp(inputs.stores.machineValues(key.domain), rule.key);
  if (managed) {
    key.source = "managed";
    key.value = managed;
  } else if (root) {
    key.source = "root's store";
    key.value = root;
  } else if (machine) {
    key.source = "machine-wide";
    key.value = machine;
  } else {
    key.source = "default";
  }
}

// What the agent takes, by the road it reads the key.
void takeReading(const KeyRule& rule, const ConsoleInputs& inputs,
                 const mdm::PreferenceSnapshot& snapshot, PolicyKey& key) {
  if (rule.road == Road::snapshot) {
    key.reading =
        rule.kind == Kind::boolean
            ? (snapshot.boolValue(rule.key, rule.domain, rule.fallback) ? "true" : "false")
            : "\"" + snapshot.string(rule.key, rule.domain, "") + "\"";
  } else if (rule.road == Road::looseDefaults) {
    key.reading =
        mdm::PreferenceConversions::boolForKey(inputs.userDefaults, rule.key) ? "true" : "false";
  } else if (key.value) {
    if (auto reading = defaultsReading(rule, *key.value, inputs)) {
      key.reading = std::move(*reading);
    } else {
      key.ignored = true;
    }
  }
  if (!key.value || key.ignored) {
    const std::string fallback = fallbackReading(rule);
    if (key.reading.empty()) key.reading = fallback;
    if (key.ignored) key.reading = "unusable, read as " + fallback;
  }
}

}  // namespace

std::vector<PolicyKey> PolicyKey::readAll(const ConsoleInputs& inputs,
                                          const mdm::PreferenceSnapshot& snapshot) {
  std::vector<PolicyKey> keys;
  for (const KeyRule& rule : rules()) {
    PolicyKey key;
    key.domain = std::string(mdm::rawValue(rule.domain));
    key.key = rule.key;
    key.road = std::string(roadName(rule.road));
    findSource(rule, inputs, key);
    takeReading(rule, inputs, snapshot, key);
    keys.push_back(std::move(key));
  }
  return keys;
}

}  // namespace velmo::agent::console
