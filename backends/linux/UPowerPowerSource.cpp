#include "backends/linux/UPowerPowerSource.h"

namespace velmo::platform::linux {

UPowerPowerSource::UPowerPowerSource(SdBusConnection& connection)
    : daemon_(connection, kService, "/org/freedesktop/UPower", "org.freedesktop.UPower"),
      displayDevice_(connection, kService, "/org/freedesktop/UPower/devices/DisplayDevice",
                     "org.freedesktop.UPower.Device") {}

std::optional<PowerState> UPowerPowerSource::current() const {
  if (!daemon_.available()) return std::nullopt;
  PowerState state;
  if (const auto found = daemon_.values().find("OnBattery"); found != daemon_.values().end()) {
    if (const auto* flag = found->second.getIf<bool>()) state.onBattery = *flag;
  }
  const auto& device = displayDevice_.values();
  if (const auto found = device.find("Percentage"); found != device.end()) {
    if (const auto* percent = found->second.getIf<double>()) state.percent = *percent;
  }
  return state;
}

void UPowerPowerSource::onChange(std::function<void()> handler) {
  daemon_.onChange(handler);
  displayDevice_.onChange(std::move(handler));
}

}  // namespace velmo::platform::linux
