#pragma once

#include <optional>
#include <vector>

#include <nlohmann/json_fwd.hpp>

#include "core/PlistValue.h"
#include "core/VelmoTimeWindow.h"

namespace velmo::core {

// The windows of the whole machine in which runs may start, as one value.
// Part of the shared interface; the agent itself reads plain window lists.
struct GlobalAllowWindows {
  std::vector<VelmoTimeWindow> windows{};

  // A dictionary with the list under "windows".
  PlistValue toPlist() const;
  // None when "windows" is missing or any window in it is malformed.
  static std::optional<GlobalAllowWindows> fromPlist(const PlistValue& value);

  bool operator==(const GlobalAllowWindows&) const = default;
};

void to_json(nlohmann::json& json, const GlobalAllowWindows& value);
void from_json(const nlohmann::json& json, GlobalAllowWindows& value);

}  // namespace velmo::core
