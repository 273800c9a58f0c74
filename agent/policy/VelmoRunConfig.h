#pragma once

#include <cstdint>
#include <optional>
#include <set>
#include <string>
#include <vector>

#include "core/time/VelmoTimeWindow.h"
#include "core/time/VelmoWindowPolicy.h"
#include "platform/UserDefaults.h"

namespace velmo::agent::policy {

// The run policy an administrator sets: how often to run, what is in scope,
// and when runs may start. Read from the agent's user defaults, where a
// profile for its domain shows up; a missing or ill-typed key gives its default.
struct VelmoRunConfig {
  std::optional<double> runInterval{};  // Seconds.
  // Seconds over which a fleet's runs at a window's opening spread; none or 0: no spread.
  std::optional<double> runSplay{};
  std::set<std::string> updateOnly{};
  std::set<std::string> installOrUpdate{};
  bool updateAll = false;
  std::vector<core::VelmoTimeWindow> globalAllowWindows{};
  std::vector<core::VelmoTimeWindow> globalBlackoutWindows{};
  bool allowUserInitiatedOutsideWindows = true;
  bool velmoTuesdayOnly = false;
  // Conditions for scheduled runs: mains power, a battery charge while on
  // battery (0 to 100; 0: any), a network not paid by the byte.
  bool runOnlyOnACPower = false;
  std::int64_t minimumBatteryPercent = 0;
  bool runOnlyOnUnmeteredNetwork = false;

  static VelmoRunConfig read(const platform::UserDefaults& userDefaults);

  bool operator==(const VelmoRunConfig&) const = default;
  // Every field at its default.
  bool isEmpty() const;
  // An interval or some software in scope; windows don't count.
  bool hasRunScope() const;
  // The windows that bind unattended runs in the given zone: the allow list
  // (the Tuesday window stands in for an empty one when enabled) with the
  // blackout list as deny windows. Nothing when no window applies at all,
  // which means every moment is allowed.
  std::optional<core::VelmoWindowPolicy> windowPolicy(const std::string& timeZoneId) const;
};

}  // namespace velmo::agent::policy
