#pragma once

#include <cstdint>
#include <map>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "core/values/Time.h"

namespace velmo::core {

// One deferral of one update, as the deferrals file records it:
// {"reason": "...", "timestamp": "2026-03-10T14:05:09Z"}.
struct DeferralDetail {
  // Written in whole seconds, UTC.
  TimePoint timestamp;
  std::string reason;

  // For logs:
  // DeferralDetail(timestamp: 2026-03-10 14:05:09 +0000, reason: "User chose to defer")
  std::string description() const;

  friend bool operator==(const DeferralDetail&, const DeferralDetail&) = default;
};

// The deferrals of one application at one target version. Files written by
// older versions may lack the count and the list; those keys stay out when
// unset, so such a file is rewritten as it was.
struct Deferral {
  std::string identifier;  // appId + "_" + targetVersion
  std::string appId;
  std::string targetVersion;
  std::optional<std::int64_t> deferralCount;
  std::optional<std::vector<DeferralDetail>> deferrals;
  // The accounts (uids, ascending) that deferred it: "deferredBy", which the
  // siblings' decoders ignore. Absent in records of older files.
  std::optional<std::vector<std::uint32_t>> deferredBy;

  bool deferredByAccount(std::uint32_t uid) const;

  static Deferral make(std::string appId, std::string targetVersion);

  friend bool operator==(const Deferral&, const Deferral&) = default;
};

// The deferrals file: one JSON object, key -> Deferral object.
using DeferralMap = std::map<std::string, Deferral>;

// None when the text isn't a JSON object of Deferral objects: one bad member
// fails the whole map. Required are "identifier", "appId" and "targetVersion"
// (strings); "deferralCount" is a whole number and "deferrals" an array of
// {"timestamp", "reason"}, and "deferredBy" an array of uids, each may be
// missing or null. Timestamps are strict
// ISO 8601 (Iso8601DateFormatter) within the years 1678 to 2261, the span a
// TimePoint holds. Unknown keys are ignored.
std::optional<DeferralMap> decodeDeferralMap(std::string_view text);

// Indented by two spaces, keys sorted at every level; none when the text can't
// be made (invalid UTF-8).
std::optional<std::string> encodeDeferralMap(const DeferralMap& map);

}  // namespace velmo::core
