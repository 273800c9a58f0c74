#include "core/AppInstallWindows.h"

#include <utility>

#include <nlohmann/json.hpp>

namespace velmo::core {
namespace {

constexpr std::string_view kWindowsKey = "windows";

}  // namespace

PlistValue AppInstallWindows::toPlist() const {
  PlistDictionary dictionary;
  dictionary.emplace(kWindowsKey, VelmoTimeWindow::toPlistArray(windows));
  return dictionary;
}

std::optional<AppInstallWindows> AppInstallWindows::fromPlist(const PlistValue& value) {
  const auto* dictionary = value.getIf<PlistDictionary>();
  if (!dictionary) return std::nullopt;
  const auto found = dictionary->find(kWindowsKey);
  if (found == dictionary->end()) return std::nullopt;
  auto decoded = VelmoTimeWindow::fromPlistArray(found->second);
  if (!decoded) return std::nullopt;
  return AppInstallWindows{std::move(*decoded)};
}

void to_json(nlohmann::json& json, const AppInstallWindows& value) {
  json = nlohmann::json::object();
  json[kWindowsKey] = value.windows;
}

void from_json(const nlohmann::json& json, AppInstallWindows& value) {
  const auto& windows = json.at(kWindowsKey);
  if (!windows.is_array()) {
    throw nlohmann::json::type_error::create(
        302, std::string("type must be array, but is ") + windows.type_name(), &windows);
  }
  value.windows = windows.get<std::vector<VelmoTimeWindow>>();
}

}  // namespace velmo::core
