#pragma once

#include <optional>
#include <vector>

#include <nlohmann/json_fwd.hpp>

#include "core/PlistValue.h"
#include "core/VelmoTimeWindow.h"

namespace velmo::core {

// A window list for app installs, as one value.
// Part of the shared interface; the agent itself reads plain window lists.
struct AppInstallWindows {
  std::vector<VelmoTimeWindow> windows{};

  // A dictionary with the list under "windows".
  PlistValue toPlist() const;
  // None when "windows" is missing or any window in it is malformed.
  static std::optional<AppInstallWindows> fromPlist(const PlistValue& value);

  bool operator==(const AppInstallWindows&) const = default;
};

void to_json(nlohmann::json& json, const AppInstallWindows& value);
void from_json(const nlohmann::json& json, AppInstallWindows& value);

}  // namespace velmo::core
