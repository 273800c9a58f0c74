#pragma once

#include <cstdint>
#include <functional>
#include <optional>

#include "backends/linux/SdBusConnection.h"
#include "backends/linux/SdBusServiceProperties.h"
#include "platform/NetworkCost.h"

namespace velmo::platform::linux {

// The network's cost from NetworkManager on the system bus: its Metered
// property, watched, not polled.
class NetworkManagerCost final : public NetworkCost {
 public:
  static constexpr const char* kService = "org.freedesktop.NetworkManager";

  explicit NetworkManagerCost(SdBusConnection& connection);

  std::optional<bool> metered() const override;
  void onChange(std::function<void()> handler) override;

  // NetworkManager's metered values: 1 yes and 3 guess-yes are metered, 2 no
  // and 4 guess-no are not, 0 (unknown) and anything else are none.
  static std::optional<bool> fromMetered(std::int64_t value);

 private:
  SdBusServiceProperties manager_;
};

}  // namespace velmo::platform::linux
