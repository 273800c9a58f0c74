#pragma once

#include <optional>
#include <string_view>

#include <nlohmann/json_fwd.hpp>

namespace velmo::core {

// A processor family that a package or a Mac is built for.
enum class PlatformArchitecture { arm64, x86_64 };

std::string_view rawValue(PlatformArchitecture architecture);
// Exact match, case included; none for anything else ("x86-64", "ARM64").
std::optional<PlatformArchitecture> platformArchitectureFromRawValue(std::string_view raw);

// JSON form: the raw value as a string. Decoding throws on anything else.
void to_json(nlohmann::json& json, PlatformArchitecture architecture);
void from_json(const nlohmann::json& json, PlatformArchitecture& architecture);

}  // namespace velmo::core
