#include "core/deferrals/DialogResponse.h"

#include <array>
#include <utility>

#include "core/items/ToolIdentifier.h"

namespace velmo::core {
namespace {

using Kind = ResponseType::Kind;
using Json = nlohmann::json;

constexpr std::array<std::pair<Kind, std::string_view>, 9> kRawValues{{
    {Kind::update, "update"},
    {Kind::forceUpdateAtDeferralLimit, "forceUpdateAtDeferralLimit"},
    {Kind::deferral, "deferral"},
    {Kind::dndDeferral, "dndDeferral"},
    {Kind::interruptedDueToSleep, "interruptedDueToSleep"},
    {Kind::timeout, "timeout"},
    {Kind::timeoutAsDeferral, "timeoutAsDeferral"},
    {Kind::meetingDeferral, "meetingDeferral"},
    {Kind::error, "error"},
}};

constexpr std::string_view kMeetingTypeKey = "type";

std::optional<ResponseType> fail(std::string* error, std::string_view text) {
  if (error) *error = text;
  return std::nullopt;
}

// A required string member; none when missing, of another type, or longer
// than an item's fields may be.
const std::string* stringMember(const Json& object, std::string_view key) {
  const auto found = object.find(key);
  if (found == object.end() || !found->is_string()) return nullptr;
  const auto* text = found->get_ptr<const std::string*>();
  return text->size() > UpdateItem::kMaxFieldLength ? nullptr : text;
}

}  // namespace

std::string_view rawValue(ResponseType::Kind kind) {
  for (const auto& [candidate, raw] : kRawValues) {
    if (candidate == kind) return raw;
  }
  return "";
}

bool ResponseType::isDeferral() const {
  switch (kind) {
    case Kind::deferral:
    case Kind::dndDeferral:
    case Kind::timeoutAsDeferral:
    case Kind::meetingDeferral:
      return true;
    case Kind::update:
    case Kind::forceUpdateAtDeferralLimit:
    case Kind::interruptedDueToSleep:
    case Kind::timeout:
    case Kind::error:
      return false;
  }
  return false;
}

std::string ResponseType::reasonText() const {
  switch (kind) {
    case Kind::update:
      return "Unknown Deferral Reason";
    case Kind::forceUpdateAtDeferralLimit:
      return "Forced update at deferral limit";
    case Kind::deferral:
      return "User chose to defer";
    case Kind::dndDeferral:
      return "Respect DND deferral";
    case Kind::interruptedDueToSleep:
      return "Interrupted due to sleep";
    case Kind::timeout:
      return "Notification timed out";
    case Kind::timeoutAsDeferral:
      return "Timeout as deferral";
    case Kind::meetingDeferral:
      return "Respect meetings deferral (" + meetingType + ")";
    case Kind::error:
      return "An error occurred";
  }
  return "Unknown Deferral Reason";
}

std::string ResponseType::description() const {
  std::string text(rawValue(kind));
  if (kind == Kind::meetingDeferral) text += "(type: \"" + meetingType + "\")";
  return text;
}

Json ResponseType::toJSON() const {
  Json payload = Json::object();
  if (kind == Kind::meetingDeferral) payload[kMeetingTypeKey] = meetingType;
  Json json = Json::object();
  json[rawValue(kind)] = std::move(payload);
  return json;
}

std::optional<ResponseType> ResponseType::fromJSON(const Json& json, std::string* error) {
  if (!json.is_object()) return fail(error, "Expected a response object.");
  std::optional<Kind> named;
  for (const auto& [kind, raw] : kRawValues) {
    if (!json.contains(raw)) continue;
    if (named) return fail(error, kInvalidResponseKeys);
    named = kind;
  }
  if (!named) return fail(error, kInvalidResponseKeys);
  const Json& payload = json.at(rawValue(*named));
  if (!payload.is_object()) return fail(error, "Expected an object under the response's key.");
  ResponseType response{*named, {}};
  if (*named == Kind::meetingDeferral) {
    const auto* type = stringMember(payload, kMeetingTypeKey);
    if (!type) return fail(error, "Expected a string \"type\" for meetingDeferral.");
    response.meetingType = *type;
  }
  return response;
}

DialogResponse::DialogResponse(std::string identifier, std::string appId, std::string targetVersion,
                               URL url, ResponseType response)
    : identifier(std::move(identifier)),
      appId(std::move(appId)),
      targetVersion(std::move(targetVersion)),
      url(std::move(url)),
      response(std::move(response)) {}

DialogResponse DialogResponse::fromItem(const UpdateItem& item, ResponseType response) {
  const auto& path = item.installPath;
  // A path beginning with "/" always has a file URL.
  auto url = URL::fileURLWithPath(path.starts_with('/') ? path : "/" + path);
  return DialogResponse(item.id, item.id, item.targetVersion, std::move(*url), std::move(response));
}

std::string DialogResponse::path() const { return url.path(); }

std::optional<std::string> DialogResponse::jsonText() const {
  // In the order of the fields, as the siblings write it.
  nlohmann::ordered_json json = nlohmann::ordered_json::object();
  json["identifier"] = identifier;
  json["appId"] = appId;
  json["targetVersion"] = targetVersion;
  json["url"] = url.absoluteString();
  json["response"] = response.toJSON();
  try {
    return json.dump();
  } catch (const nlohmann::ordered_json::exception&) {
    return std::nullopt;  // Text that isn't UTF-8 has no JSON form.
  }
}

std::optional<DialogResponse> DialogResponse::fromJSONText(std::string_view text) {
  const Json json = Json::parse(text, nullptr, false);
  if (!json.is_object()) return std::nullopt;  // Also what a parse error gives.
  const auto* identifier = stringMember(json, "identifier");
  const auto* appId = stringMember(json, "appId");
  const auto* targetVersion = stringMember(json, "targetVersion");
  const auto* urlText = stringMember(json, "url");
  const auto responseJSON = json.find("response");
  // Both IDs can reach the tool's command line.
  if (!identifier || !appId || !targetVersion || !urlText || urlText->empty() ||
      responseJSON == json.end() || !ToolIdentifier::isValid(*identifier) ||
      !ToolIdentifier::isValid(*appId)) {
    return std::nullopt;
  }
  auto url = URL::fromString(*urlText);
  auto response = ResponseType::fromJSON(*responseJSON);
  if (!url || !response) return std::nullopt;
  return DialogResponse(*identifier, *appId, *targetVersion, std::move(*url), std::move(*response));
}

}  // namespace velmo::core
