#include "agent/console/SchemaCommand.h"

#include <algorithm>
#include <string>

#include "agent/console/PolicyKey.h"
#include "agent/run/RunPlanner.h"
#include "agent/run/RunSplay.h"
#include "core/time/Weekday.h"
#include "core/values/Bundle.h"
#include "core/values/PropertyList.h"

namespace velmo::agent::console {
namespace {

using nlohmann::json;
using Kind = PolicyKey::Kind;

// What the agent takes for a catalogue ID (ToolIdentifier's rule).
constexpr const char* kIdPattern = "^[A-Za-z0-9_][A-Za-z0-9._+-]{0,127}$";

std::string titleOf(mdm::ManagedDomain domain) {
  switch (domain) {
    case mdm::ManagedDomain::velmoAgent:
      return "Velmo Agent";
    case mdm::ManagedDomain::velmoNotifier:
      return "Velmo Notifier";
    case mdm::ManagedDomain::velmo:
      return "Velmo";
    case mdm::ManagedDomain::controlCenter:
      break;
  }
  return "";
}

json timeOfDay() {
  return {{"type", "object"},
          {"properties",
           {{"hour", {{"type", "integer"}, {"minimum", 0}, {"maximum", 23}}},
            {"minute", {{"type", "integer"}, {"minimum", 0}, {"maximum", 59}}}}},
          {"required", {"hour", "minute"}}};
}

json window() {
  json days = json::array();
  for (const auto day : core::kAllWeekdays) days.push_back(std::string(core::rawValue(day)));
  return {{"type", "object"},
          {"title", "Window"},
          {"properties",
           {{"days",
             {{"type", "array"},
              {"title", "Days"},
              {"items", {{"type", "string"}, {"enum", days}}},
              {"minItems", 1}}},
            {"weeksOfMonth",
             {{"type", "array"},
              {"title", "Weeks of the month (calendar weeks; none: every week)"},
              {"items", {{"type", "integer"}, {"minimum", 1}, {"maximum", 6}}}}},
            {"start", timeOfDay()},
            {"end", timeOfDay()}}},
          {"required", {"days", "start", "end"}}};
}

// The type, range, default and allowed values of one key, as JSON Schema says them.
json valueSchema(const PolicyKey::Rule& rule) {
  switch (rule.kind) {
    case Kind::boolean:
      return {{"type", "boolean"}, {"default", rule.fallback}};
    case Kind::interval:
      return {{"type", "number"},
              {"exclusiveMinimum", 0},
              {"default", run::RunPlanner::kDefaultInterval.count()}};
    case Kind::percent:
      return {{"type", "integer"}, {"minimum", 0}, {"maximum", 100}, {"default", 0}};
    case Kind::splay:
      return {{"type", "number"},
              {"minimum", 0},
              {"maximum", run::RunSplay::kMaxSeconds},
              {"default", 0}};
    case Kind::text:
    case Kind::channel: {
      json schema{{"type", "string"}};
      if (rule.kind == Kind::channel) schema["default"] = "stable";
      if (!rule.allowed.empty()) {
        schema["enum"] = json(std::vector<std::string>(rule.allowed.begin(), rule.allowed.end()));
        schema["options"] = {{"enum_titles", schema["enum"]}};
      }
      return schema;
    }
    case Kind::ids:
      return {{"type", "array"}, {"items", {{"type", "string"}, {"pattern", kIdPattern}}}};
    case Kind::windows:
      return {{"type", "array"}, {"items", window()}};
  }
  return {};
}

using core::PlistArray;
using core::PlistDictionary;

PlistDictionary subkey(const char* name, const char* type, const char* description) {
  return {{"pfm_name", name}, {"pfm_type", type}, {"pfm_description", description}};
}

PlistDictionary rangedInteger(const char* name, std::int64_t low, std::int64_t high) {
  auto key = subkey(name, "integer", "");
  key["pfm_range_min"] = low;
  key["pfm_range_max"] = high;
  return key;
}

PlistDictionary timeOfDayKey(const char* name, const char* description) {
  auto key = subkey(name, "dictionary", description);
  key["pfm_subkeys"] = PlistArray{rangedInteger("hour", 0, 23), rangedInteger("minute", 0, 59)};
  return key;
}

PlistDictionary windowKey() {
  PlistArray days;
  for (const auto day : core::kAllWeekdays) days.emplace_back(std::string(core::rawValue(day)));
  auto day = subkey("Day", "string", "");
  day["pfm_range_list"] = std::move(days);
  auto dayList = subkey("days", "array", "The days the window holds on.");
  dayList["pfm_subkeys"] = PlistArray{day};
  auto weeks = subkey("weeksOfMonth", "array", "Calendar weeks of the month; none: every week.");
  weeks["pfm_subkeys"] = PlistArray{rangedInteger("Week", 1, 6)};
  auto window = subkey("Window", "dictionary", "");
  window["pfm_subkeys"] = PlistArray{dayList, weeks, timeOfDayKey("start", "First minute."),
                                     timeOfDayKey("end", "Last minute, inclusive.")};
  return window;
}

// One key of the table as a manifest's subkey: type, default, range.
PlistDictionary manifestKey(const PolicyKey::Rule& rule) {
  PlistDictionary key{{"pfm_name", rule.key},
                      {"pfm_title", rule.title},
                      {"pfm_description", rule.description},
                      {"pfm_app_min", rule.since}};
  switch (rule.kind) {
    case Kind::boolean:
      key["pfm_type"] = "boolean";
      key["pfm_default"] = rule.fallback;
      break;
    case Kind::interval:
      key["pfm_type"] = "real";
      key["pfm_default"] = run::RunPlanner::kDefaultInterval.count();
      key["pfm_range_min"] = 1;
      break;
    case Kind::percent:
      key["pfm_type"] = "integer";
      key["pfm_default"] = 0;
      key["pfm_range_min"] = 0;
      key["pfm_range_max"] = 100;
      break;
    case Kind::splay:
      key["pfm_type"] = "real";
      key["pfm_default"] = 0.0;
      key["pfm_range_min"] = 0;
      key["pfm_range_max"] = run::RunSplay::kMaxSeconds;
      break;
    case Kind::text:
    case Kind::channel:
      key["pfm_type"] = "string";
      if (rule.kind == Kind::channel) key["pfm_default"] = "stable";
      if (!rule.allowed.empty()) {
        key["pfm_range_list"] = PlistArray(rule.allowed.begin(), rule.allowed.end());
      }
      break;
    case Kind::ids: {
      key["pfm_type"] = "array";
      auto id = subkey("ID", "string", "A catalogue ID.");
      id["pfm_format"] = kIdPattern;
      key["pfm_subkeys"] = PlistArray{id};
      break;
    }
    case Kind::windows:
      key["pfm_type"] = "array";
      key["pfm_subkeys"] = PlistArray{windowKey()};
      break;
  }
  return key;
}

// The standard keys every payload has, first, as manifests list them.
PlistArray payloadKeys(mdm::ManagedDomain domain) {
  auto type = subkey("PayloadType", "string", "The payload's type: the preference domain.");
  type["pfm_value"] = std::string(mdm::rawValue(domain));
  type["pfm_require"] = "always";
  auto version = subkey("PayloadVersion", "integer", "The payload's version.");
  version["pfm_value"] = 1;
  version["pfm_require"] = "always";
  auto identifier = subkey("PayloadIdentifier", "string", "A unique identifier of the payload.");
  identifier["pfm_require"] = "always";
  auto uuid = subkey("PayloadUUID", "string", "A unique UUID of the payload.");
  uuid["pfm_format"] =
      "^[0-9A-Za-z]{8}-[0-9A-Za-z]{4}-[0-9A-Za-z]{4}-[0-9A-Za-z]{4}-[0-9A-Za-z]{12}$";
  uuid["pfm_require"] = "always";
  return {subkey("PayloadDescription", "string", "What the payload is for."),
          subkey("PayloadDisplayName", "string", "The payload's name."),
          identifier,
          subkey("PayloadOrganization", "string", "The organization the payload comes from."),
          type,
          uuid,
          version};
}

}  // namespace

PlistDictionary SchemaCommand::manifest(mdm::ManagedDomain domain) {
  PlistArray subkeys = payloadKeys(domain);
  for (const auto& rule : PolicyKey::rules()) {
    if (rule.domain == domain) subkeys.emplace_back(manifestKey(rule));
  }
  return {{"pfm_domain", std::string(mdm::rawValue(domain))},
          {"pfm_title", titleOf(domain)},
          {"pfm_description", "Managed settings of " + titleOf(domain) + "."},
          {"pfm_format_version", 1},
          {"pfm_version", 1},
          {"pfm_platforms", PlistArray{"macOS"}},
          {"pfm_targets", PlistArray{"system"}},
          {"pfm_subkeys", std::move(subkeys)}};
}

json SchemaCommand::jsonSchema(mdm::ManagedDomain domain) {
  json properties = json::object();
  int order = 0;
  for (const auto& rule : PolicyKey::rules()) {
    if (rule.domain != domain) continue;
    json property = valueSchema(rule);
    property["title"] = rule.title;
    property["description"] = std::string(rule.description) + " Since " + rule.since + ".";
    property["property_order"] = ++order * 5;
    properties[rule.key] = std::move(property);
  }
  return {{"title", titleOf(domain) + " (" + std::string(mdm::rawValue(domain)) + ")"},
          {"description", "Managed settings of " + titleOf(domain) + ", generated by velmo-agent " +
                              core::Bundle::main().versionString() + "."},
          {"__preferencedomain", std::string(mdm::rawValue(domain))},
          {"__version", core::Bundle::main().versionString()},
          {"options", {{"remove_empty_properties", true}}},
          {"type", "object"},
          {"properties", std::move(properties)}};
}

int SchemaCommand::run(const Invocation& invocation, std::ostream& out, std::ostream& err) {
  auto domain = mdm::ManagedDomain::velmoAgent;
  if (invocation.domain) {
    const auto found = std::find_if(
        mdm::kAllManagedDomains.begin(), mdm::kAllManagedDomains.end(),
        [&](mdm::ManagedDomain each) { return mdm::rawValue(each) == *invocation.domain; });
    if (found == mdm::kAllManagedDomains.end() || titleOf(*found).empty()) {
      err << "Error: the agent reads no key of \"" << *invocation.domain
          << "\"; the domains are com.marvenith.velmo-agent, com.marvenith.velmo-notifier and "
             "com.marvenith.velmo.\n";
      return 1;
    }
    domain = *found;
  }
  if (invocation.format == "manifest") {
    std::string failure;
    const auto text = core::PropertyList::xml(core::PlistValue(manifest(domain)), &failure);
    if (!text) {
      err << "Error: " << failure << "\n";
      return 1;
    }
    out << *text;
    return 0;
  }
  out << jsonSchema(domain).dump(2) << "\n";
  return 0;
}

}  // namespace velmo::agent::console
