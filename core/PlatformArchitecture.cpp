#include "core/PlatformArchitecture.h"

#include <array>
#include <utility>

#include <nlohmann/json.hpp>

#include "core/values/RawValueCoding.h"

namespace velmo::core {
namespace {

// Indexed by the enumerator's value.
constexpr std::array<std::pair<PlatformArchitecture, std::string_view>, 2> kRawValues{{
    {PlatformArchitecture::arm64, "arm64"},
    {PlatformArchitecture::x86_64, "x86_64"},
}};

}  // namespace

std::string_view rawValue(PlatformArchitecture architecture) {
  return kRawValues[static_cast<std::size_t>(architecture)].second;
}

std::optional<PlatformArchitecture> platformArchitectureFromRawValue(std::string_view raw) {
  for (const auto& [architecture, name] : kRawValues) {
    if (name == raw) return architecture;
  }
  return std::nullopt;
}

void to_json(nlohmann::json& json, PlatformArchitecture architecture) {
  json = rawValue(architecture);
}

void from_json(const nlohmann::json& json, PlatformArchitecture& architecture) {
  architecture = decodeRawValue(json, platformArchitectureFromRawValue, "PlatformArchitecture");
}

}  // namespace velmo::core
