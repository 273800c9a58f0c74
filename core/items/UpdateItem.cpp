#include "core/items/UpdateItem.h"

#include <cstdio>

#include <nlohmann/json.hpp>

#include "core/items/ToolIdentifier.h"

namespace velmo::core {
namespace {

using Json = nlohmann::ordered_json;

// In the order of the type's fields, so that files read in that order.
Json encode(const UpdateItem& item) {
  Json json = Json::object();
  json["id"] = item.id;
  json["friendlyName"] = item.friendlyName;
  json["targetVersion"] = item.targetVersion;
  if (item.installedVersion) json["installedVersion"] = *item.installedVersion;
  json["installPath"] = item.installPath;
  json["respectDnd"] = item.respectDnd;
  json["respectMeetings"] = item.respectMeetings;
  if (item.serialInstallRequired) json["serialInstallRequired"] = *item.serialInstallRequired;
  return json;
}

// Strict as a typed decoder is: a required key must be there with its JSON
// type; an optional key may be missing or null. Throws nlohmann's exceptions.
template <typename T>
T required(const Json& json, const char* key) {
  const Json& value = json.at(key);
  if constexpr (std::is_same_v<T, bool>) {
    if (!value.is_boolean()) throw Json::type_error::create(302, "not a boolean", &value);
  } else {
    if (!value.is_string()) throw Json::type_error::create(302, "not a string", &value);
    if (value.get_ref<const std::string&>().size() > UpdateItem::kMaxFieldLength) {
      throw Json::type_error::create(302, "too long", &value);
    }
  }
  return value.get<T>();
}

template <typename T>
std::optional<T> optional(const Json& json, const char* key) {
  const auto found = json.find(key);
  if (found == json.end() || found->is_null()) return std::nullopt;
  return required<T>(json, key);
}

UpdateItem decode(const Json& json) {
  if (!json.is_object()) throw Json::type_error::create(302, "not an object", &json);
  // The id goes to the tool's command line: an item whose id breaks the rule
  // is malformed, like one with a missing key.
  auto id = required<std::string>(json, "id");
  if (!ToolIdentifier::isValid(id)) throw Json::type_error::create(302, "not an ID", &json);
  return UpdateItem(
      std::move(id), required<std::string>(json, "friendlyName"),
      required<std::string>(json, "targetVersion"), optional<std::string>(json, "installedVersion"),
      required<std::string>(json, "installPath"), required<bool>(json, "respectDnd"),
      required<bool>(json, "respectMeetings"), optional<bool>(json, "serialInstallRequired"));
}

std::optional<std::string> dump(const Json& json, int indent) {
  try {
    return json.dump(indent);
  } catch (const Json::exception&) {
    return std::nullopt;  // Text that isn't UTF-8 has no JSON form.
  }
}

Json encodeArray(const std::vector<UpdateItem>& items) {
  Json array = Json::array();
  for (const auto& item : items) array.push_back(encode(item));
  return array;
}

}  // namespace

UpdateItem::UpdateItem(std::string id, std::string friendlyName, std::string targetVersion,
                       std::optional<std::string> installedVersion, std::string installPath,
                       bool respectDnd, bool respectMeetings,
                       std::optional<bool> serialInstallRequired, InstallState state)
    : id(std::move(id)),
      friendlyName(std::move(friendlyName)),
      targetVersion(std::move(targetVersion)),
      installedVersion(std::move(installedVersion)),
      installPath(std::move(installPath)),
      respectDnd(respectDnd),
      respectMeetings(respectMeetings),
      serialInstallRequired(serialInstallRequired),
      state_(state) {}

void UpdateItem::setState(InstallState state) {
  state_ = state;
  std::printf("State for %s changed to %s\n", id.c_str(), std::string(rawValue(state)).c_str());
}

std::optional<std::string> UpdateItem::jsonText() const { return dump(encode(*this), -1); }

std::optional<std::string> UpdateItem::jsonText(const std::vector<UpdateItem>& items) {
  return dump(encodeArray(items), -1);
}

std::optional<std::string> UpdateItem::prettyJSONText(const std::vector<UpdateItem>& items) {
  return dump(encodeArray(items), 2);
}

std::optional<UpdateItem> UpdateItem::fromJSONText(std::string_view text) {
  try {
    return decode(Json::parse(text));
  } catch (const Json::exception&) {
    return std::nullopt;
  }
}

std::optional<std::vector<UpdateItem>> UpdateItem::arrayFromJSONText(std::string_view text) {
  try {
    const Json json = Json::parse(text);
    if (!json.is_array()) return std::nullopt;
    std::vector<UpdateItem> items;
    items.reserve(json.size());
    for (const auto& element : json) items.push_back(decode(element));
    return items;
  } catch (const Json::exception&) {
    return std::nullopt;
  }
}

}  // namespace velmo::core
