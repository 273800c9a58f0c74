#pragma once

#include <functional>
#include <optional>

namespace velmo::platform {

// Where the machine's power comes from, as the platform's power service says.
struct PowerState {
  bool onBattery = false;
  // The charge of the machine's battery as a whole, 0 to 100; none when
  // unknown or there is no battery.
  std::optional<double> percent{};

  bool operator==(const PowerState&) const = default;
};

class PowerSource {
 public:
  virtual ~PowerSource() = default;
  // None while no power service answers.
  virtual std::optional<PowerState> current() const = 0;
  // Called on the main executor after current() changed.
  virtual void onChange(std::function<void()> handler) = 0;
};

}  // namespace velmo::platform
