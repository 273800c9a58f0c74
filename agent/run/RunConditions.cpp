#include "agent/run/RunConditions.h"

#include <cmath>

namespace velmo::agent::run {

RunConditions::Verdict RunConditions::decide(const policy::VelmoRunConfig& config,
                                             const Observed& observed) {
  const auto& power = observed.power;
  if (config.runOnlyOnACPower && power && power->onBattery) {
    return {false, "on battery (RunOnlyOnACPower)"};
  }
  // The minimum binds only on battery: on mains power the charge only grows.
  if (config.minimumBatteryPercent > 0 && power && power->onBattery && power->percent &&
      *power->percent < static_cast<double>(config.minimumBatteryPercent)) {
    return {false, "battery at " + std::to_string(static_cast<long>(std::floor(*power->percent))) +
                       "%, below " + std::to_string(config.minimumBatteryPercent) +
                       "% (MinimumBatteryPercent)"};
  }
  if (config.runOnlyOnUnmeteredNetwork && observed.metered.value_or(false)) {
    return {false, "on a metered network (RunOnlyOnUnmeteredNetwork)"};
  }
  return {};
}

std::vector<std::string> RunConditions::described(const policy::VelmoRunConfig& config) {
  std::vector<std::string> conditions;
  if (config.runOnlyOnACPower) conditions.emplace_back("mains power (RunOnlyOnACPower)");
  if (config.minimumBatteryPercent > 0) {
    conditions.push_back("at least " + std::to_string(config.minimumBatteryPercent) +
                         "% on battery (MinimumBatteryPercent)");
  }
  if (config.runOnlyOnUnmeteredNetwork) {
    conditions.emplace_back("an unmetered network (RunOnlyOnUnmeteredNetwork)");
  }
  return conditions;
}

}  // namespace velmo::agent::run
