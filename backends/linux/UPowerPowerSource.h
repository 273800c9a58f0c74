#pragma once

#include <functional>
#include <optional>

#include "backends/linux/SdBusConnection.h"
#include "backends/linux/SdBusServiceProperties.h"
#include "platform/PowerSource.h"

namespace velmo::platform::linux {

// The machine's power from UPower on the system bus: the daemon's OnBattery,
// and the charge (Percentage) of its display device, which stands for all
// batteries together. Watched, not polled.
class UPowerPowerSource final : public PowerSource {
 public:
  static constexpr const char* kService = "org.freedesktop.UPower";

  explicit UPowerPowerSource(SdBusConnection& connection);

  std::optional<PowerState> current() const override;
  void onChange(std::function<void()> handler) override;

 private:
  SdBusServiceProperties daemon_;
  SdBusServiceProperties displayDevice_;
};

}  // namespace velmo::platform::linux
