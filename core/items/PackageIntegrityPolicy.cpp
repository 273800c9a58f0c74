#include "core/items/PackageIntegrityPolicy.h"

#include <array>

#include <nlohmann/json.hpp>

#include "core/values/RawValueCoding.h"

namespace velmo::core {
namespace {

struct Row {
  PackageIntegrityPolicy policy;
  std::string_view raw;
  bool checksCached;
  bool checksDownloaded;
};

// Indexed by the enumerator's value.
constexpr std::array<Row, 4> kRows{{
    {PackageIntegrityPolicy::all, "all", true, true},
    {PackageIntegrityPolicy::cachedOnly, "cachedOnly", true, false},
    {PackageIntegrityPolicy::downloadOnly, "downloadOnly", false, true},
    {PackageIntegrityPolicy::disabled, "disabled", false, false},
}};

const Row& row(PackageIntegrityPolicy policy) { return kRows[static_cast<std::size_t>(policy)]; }

}  // namespace

std::string_view rawValue(PackageIntegrityPolicy policy) { return row(policy).raw; }

std::optional<PackageIntegrityPolicy> packageIntegrityPolicyFromRawValue(std::string_view raw) {
  for (const auto& entry : kRows) {
    if (entry.raw == raw) return entry.policy;
  }
  return std::nullopt;
}

bool checksCachedPackages(PackageIntegrityPolicy policy) { return row(policy).checksCached; }

bool checksDownloadedPackages(PackageIntegrityPolicy policy) {
  return row(policy).checksDownloaded;
}

void to_json(nlohmann::json& json, PackageIntegrityPolicy policy) { json = rawValue(policy); }

void from_json(const nlohmann::json& json, PackageIntegrityPolicy& policy) {
  policy = decodeRawValue(json, packageIntegrityPolicyFromRawValue, "PackageIntegrityPolicy");
}

}  // namespace velmo::core
