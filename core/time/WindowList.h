#pragma once

#include <optional>
#include <string>
#include <utility>
#include <vector>

#include <nlohmann/json.hpp>

#include "core/time/VelmoTimeWindow.h"
#include "core/values/PlistValue.h"

namespace velmo::core {

// A list of windows as one value, encoded as a dictionary with the list under
// "windows". `Tag` only keeps the shared interface's kinds of list apart.
template <typename Tag>
struct WindowList {
  std::vector<VelmoTimeWindow> windows{};

  PlistValue toPlist() const {
    return PlistDictionary{{"windows", VelmoTimeWindow::toPlistArray(windows)}};
  }

  // None when "windows" is missing or any window in it is malformed.
  static std::optional<WindowList> fromPlist(const PlistValue& value) {
    const auto* dictionary = value.getIf<PlistDictionary>();
    if (!dictionary) return std::nullopt;
    const auto found = dictionary->find("windows");
    if (found == dictionary->end()) return std::nullopt;
    auto decoded = VelmoTimeWindow::fromPlistArray(found->second);
    if (!decoded) return std::nullopt;
    return WindowList{std::move(*decoded)};
  }

  bool operator==(const WindowList&) const = default;

  friend void to_json(nlohmann::json& json, const WindowList& value) {
    json = nlohmann::json::object();
    json["windows"] = value.windows;
  }

  friend void from_json(const nlohmann::json& json, WindowList& value) {
    const auto& windows = json.at("windows");
    if (!windows.is_array()) {
      throw nlohmann::json::type_error::create(
          302, std::string("type must be array, but is ") + windows.type_name(), &windows);
    }
    value.windows = windows.get<std::vector<VelmoTimeWindow>>();
  }
};

}  // namespace velmo::core
