#pragma once

#include <optional>
#include <string_view>

#include <nlohmann/json_fwd.hpp>

namespace velmo::core {

// Which packages the tool verifies: the value of its `--integrity-policy` flag.
enum class PackageIntegrityPolicy { all, cachedOnly, downloadOnly, disabled };

// The flag's argument, "cachedOnly" and so on.
std::string_view rawValue(PackageIntegrityPolicy policy);
// Exact match, case included ("ALL" is none); the caller trims white space.
std::optional<PackageIntegrityPolicy> packageIntegrityPolicyFromRawValue(std::string_view raw);

// Whether packages already in the tool's cache are verified before use.
bool checksCachedPackages(PackageIntegrityPolicy policy);
// Whether packages are verified right after they are downloaded.
bool checksDownloadedPackages(PackageIntegrityPolicy policy);

// JSON form: the raw value as a string. Decoding throws on anything else.
void to_json(nlohmann::json& json, PackageIntegrityPolicy policy);
void from_json(const nlohmann::json& json, PackageIntegrityPolicy& policy);

}  // namespace velmo::core
