#include "core/deferrals/Deferral.h"

#include <algorithm>
#include <chrono>
#include <ctime>
#include <utility>

#include <nlohmann/json.hpp>

#include "core/time/Iso8601DateFormatter.h"
#include "core/values/DecodedInteger.h"

namespace velmo::core {
namespace {

// Sorted keys at every level, as the siblings write the file.
using Json = nlohmann::json;

const Json& requiredString(const Json& object, const char* key) {
  const Json& value = object.at(key);
  if (!value.is_string()) throw Json::type_error::create(302, "not a string", &value);
  return value;
}

// Missing and null alike are absent.
const Json* optionalMember(const Json& object, const char* key) {
  const auto found = object.find(key);
  return found == object.end() || found->is_null() ? nullptr : &*found;
}

void requireObject(const Json& json) {
  if (!json.is_object()) throw Json::type_error::create(302, "not an object", &json);
}

// Throws nlohmann's exceptions on any mismatch.
DeferralDetail decodeDetail(const Json& json) {
  requireObject(json);
  const auto timestamp =
      Iso8601DateFormatter::date(requiredString(json, "timestamp").get<std::string>());
  if (!timestamp) throw Json::other_error::create(501, "not an ISO 8601 date", &json);
  return DeferralDetail{*timestamp, requiredString(json, "reason").get<std::string>()};
}

Deferral decodeDeferral(const Json& json) {
  requireObject(json);
  Deferral deferral{requiredString(json, "identifier").get<std::string>(),
                    requiredString(json, "appId").get<std::string>(),
                    requiredString(json, "targetVersion").get<std::string>(),
                    std::nullopt,
                    std::nullopt,
                    std::nullopt};
  if (const Json* count = optionalMember(json, "deferralCount")) {
    deferral.deferralCount = decodeInteger(*count);
  }
  if (const Json* details = optionalMember(json, "deferrals")) {
    if (!details->is_array()) throw Json::type_error::create(302, "not an array", details);
    auto& decoded = deferral.deferrals.emplace();
    decoded.reserve(details->size());
    for (const auto& detail : *details) decoded.push_back(decodeDetail(detail));
  }
  if (const Json* accounts = optionalMember(json, "deferredBy")) {
    if (!accounts->is_array()) throw Json::type_error::create(302, "not an array", accounts);
    auto& decoded = deferral.deferredBy.emplace();
    for (const auto& uid : *accounts) {
      if (!uid.is_number_unsigned() || uid.get<std::uint64_t>() > UINT32_MAX) {
        throw Json::type_error::create(302, "not a uid", &uid);
      }
      decoded.push_back(uid.get<std::uint32_t>());
    }
    std::sort(decoded.begin(), decoded.end());
    decoded.erase(std::unique(decoded.begin(), decoded.end()), decoded.end());
  }
  return deferral;
}

Json encodeDeferral(const Deferral& deferral) {
  Json json = Json::object();
  json["identifier"] = deferral.identifier;
  json["appId"] = deferral.appId;
  json["targetVersion"] = deferral.targetVersion;
  if (deferral.deferralCount) json["deferralCount"] = *deferral.deferralCount;
  if (deferral.deferrals) {
    Json details = Json::array();
    for (const auto& detail : *deferral.deferrals) {
      details.push_back({{"timestamp", Iso8601DateFormatter::string(detail.timestamp)},
                         {"reason", detail.reason}});
    }
    json["deferrals"] = std::move(details);
  }
  if (deferral.deferredBy) json["deferredBy"] = *deferral.deferredBy;
  return json;
}

}  // namespace

std::string DeferralDetail::description() const {
  const std::time_t seconds =
      std::chrono::system_clock::to_time_t(std::chrono::floor<std::chrono::seconds>(timestamp));
  std::tm fields{};
  ::gmtime_r(&seconds, &fields);
  char date[32];
  const std::size_t length = std::strftime(date, sizeof date, "%Y-%m-%d %H:%M:%S +0000", &fields);
  return "DeferralDetail(timestamp: " + std::string(date, length) + ", reason: \"" + reason + "\")";
}

Deferral Deferral::make(std::string appId, std::string targetVersion) {
  std::string identifier = appId + "_" + targetVersion;
  return Deferral{std::move(identifier), std::move(appId), std::move(targetVersion),
                  std::nullopt,          std::nullopt,     std::nullopt};
}

bool Deferral::deferredByAccount(std::uint32_t uid) const {
  return deferredBy && std::binary_search(deferredBy->begin(), deferredBy->end(), uid);
}

std::optional<DeferralMap> decodeDeferralMap(std::string_view text) {
  try {
    const Json json = Json::parse(text);
    if (!json.is_object()) return std::nullopt;
    DeferralMap map;
    for (const auto& [key, value] : json.items()) map.emplace(key, decodeDeferral(value));
    return map;
  } catch (const Json::exception&) {
    return std::nullopt;
  }
}

std::optional<std::string> encodeDeferralMap(const DeferralMap& map) {
  Json json = Json::object();
  for (const auto& [key, deferral] : map) json[key] = encodeDeferral(deferral);
  try {
    return json.dump(2);
  } catch (const Json::exception&) {
    return std::nullopt;  // Text that isn't UTF-8 has no JSON form.
  }
}

}  // namespace velmo::core
