#pragma once

#include <cstddef>
#include <functional>
#include <optional>
#include <string>
#include <string_view>

#include <nlohmann/json.hpp>

#include "core/URL.h"
#include "core/items/UpdateItem.h"

namespace velmo::core {

// The decoding error for a response object that names no case, or more than one.
inline constexpr std::string_view kInvalidResponseKeys =
    "Invalid number of keys found, expected one.";

// The notifier's answer; only meetingDeferral carries a payload (`meetingType`).
// Its JSON form is a one-key object named after the case, holding an object:
// {"deferral":{}}, {"meetingDeferral":{"type":"Zoom"}}.
struct ResponseType {
  enum class Kind {
    update,
    forceUpdateAtDeferralLimit,
    deferral,
    dndDeferral,
    interruptedDueToSleep,
    timeout,
    timeoutAsDeferral,
    meetingDeferral,
    error,
  };

  Kind kind = Kind::update;
  std::string meetingType;  // only for meetingDeferral

  // The answers that postpone the install and so count against the limit.
  bool isDeferral() const;
  // What the deferrals file records as the reason.
  std::string reasonText() const;
  // For logs: the case name, or meetingDeferral(type: "<text>") with the text as-is.
  std::string description() const;

  nlohmann::json toJSON() const;
  // Keys that name no case are ignored, but exactly one must name a case;
  // otherwise none, with `kInvalidResponseKeys` in `error`. Never throws.
  static std::optional<ResponseType> fromJSON(const nlohmann::json& json,
                                              std::string* error = nullptr);

  friend bool operator==(const ResponseType&, const ResponseType&) = default;
};

// The raw value of a kind: its case name, such as "timeoutAsDeferral".
std::string_view rawValue(ResponseType::Kind kind);

// The notifier's answer about one item, posted as compact JSON with the keys
// "identifier", "appId", "targetVersion", "url" (URL text) and "response", all
// required. Identity is the identifier alone: equality and hashing look at
// nothing else.
struct DialogResponse {
  // URL has no empty value, so every field is given.
  DialogResponse(std::string identifier, std::string appId, std::string targetVersion, URL url,
                 ResponseType response);

  std::string identifier;
  std::string appId;
  std::string targetVersion;
  URL url;
  ResponseType response;

  // The item's install path as a file URL. A relative path has no file URL of
  // its own; it is taken relative to "/", a daemon's working directory.
  static DialogResponse fromItem(const UpdateItem& item, ResponseType response);

  // Percent-decoded, as URL::path() gives it.
  std::string path() const;

  // Compact; none when the text can't be made (invalid UTF-8).
  std::optional<std::string> jsonText() const;
  // None on any failure: bad JSON, a missing key, a wrong type, an empty or
  // malformed URL, a bad response object.
  static std::optional<DialogResponse> fromJSONText(std::string_view text);

  friend bool operator==(const DialogResponse& a, const DialogResponse& b) {
    return a.identifier == b.identifier;
  }
};

}  // namespace velmo::core

template <>
struct std::hash<velmo::core::DialogResponse> {
  std::size_t operator()(const velmo::core::DialogResponse& response) const noexcept {
    return std::hash<std::string>{}(response.identifier);
  }
};
