#include "agent/policy/VelmoRunConfig.h"

#include <algorithm>

#include "core/items/ToolIdentifier.h"
#include "core/plist/DefaultsValue.h"

namespace velmo::agent::policy {
namespace {

template <typename T>
std::optional<T> read(const platform::UserDefaults& store, std::string_view key) {
  const auto object = store.object(key);
  if (!object) return std::nullopt;
  return core::DefaultsValue<T>::from(*object);
}

// IDs the tool must never see are left out here, so that a change to them
// starts nothing.
std::set<std::string> readIDs(const platform::UserDefaults& store, std::string_view key) {
  static const core::CustomLogger logger("VelmoRunConfig");
  const auto list = core::ToolIdentifier::admitted(
      read<std::vector<std::string>>(store, key).value_or(std::vector<std::string>{}), key, logger);
  return {list.begin(), list.end()};
}

}  // namespace

VelmoRunConfig VelmoRunConfig::read(const platform::UserDefaults& userDefaults) {
  VelmoRunConfig config;
  config.runInterval = policy::read<double>(userDefaults, "RunInterval");
  config.runSplay = policy::read<double>(userDefaults, "RunSplay");
  config.updateOnly = readIDs(userDefaults, "UpdateOnly");
  config.installOrUpdate = readIDs(userDefaults, "InstallOrUpdate");
  config.updateAll = policy::read<bool>(userDefaults, "UpdateAll").value_or(false);
  config.globalAllowWindows =
      core::VelmoTimeWindow::fromStoredList(userDefaults.object("GlobalAllowWindows"));
  config.globalBlackoutWindows =
      core::VelmoTimeWindow::fromStoredList(userDefaults.object("GlobalBlackoutWindows"));
  config.allowUserInitiatedOutsideWindows =
      policy::read<bool>(userDefaults, "AllowUserInitiatedOutsideWindows").value_or(true);
  config.velmoTuesdayOnly =
      policy::read<bool>(userDefaults, "EnableVelmoTuesdayWindow").value_or(false);
  config.runOnlyOnACPower = policy::read<bool>(userDefaults, "RunOnlyOnACPower").value_or(false);
  // Out of range is taken as the nearest bound, as lint says.
  config.minimumBatteryPercent = std::clamp<std::int64_t>(
      policy::read<std::int64_t>(userDefaults, "MinimumBatteryPercent").value_or(0), 0, 100);
  config.runOnlyOnUnmeteredNetwork =
      policy::read<bool>(userDefaults, "RunOnlyOnUnmeteredNetwork").value_or(false);
  return config;
}

std::optional<core::VelmoWindowPolicy> VelmoRunConfig::windowPolicy(
    const std::string& timeZoneId) const {
  if (!globalAllowWindows.empty()) {
    return core::VelmoWindowPolicy(globalAllowWindows, globalBlackoutWindows, timeZoneId);
  }
  if (velmoTuesdayOnly) {
    return core::VelmoWindowPolicy({core::VelmoWindowPolicy::tuesdayWindow()},
                                   globalBlackoutWindows, timeZoneId);
  }
  if (!globalBlackoutWindows.empty()) {
    return core::VelmoWindowPolicy({}, globalBlackoutWindows, timeZoneId);
  }
  return std::nullopt;
}

bool VelmoRunConfig::isEmpty() const { return *this == VelmoRunConfig{}; }

bool VelmoRunConfig::hasRunScope() const {
  return runInterval.has_value() || !updateOnly.empty() || !installOrUpdate.empty() || updateAll;
}

}  // namespace velmo::agent::policy
