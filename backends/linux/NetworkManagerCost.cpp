#include "backends/linux/NetworkManagerCost.h"

namespace velmo::platform::linux {

NetworkManagerCost::NetworkManagerCost(SdBusConnection& connection)
    : manager_(connection, kService, "/org/freedesktop/NetworkManager",
               "org.freedesktop.NetworkManager") {}

std::optional<bool> NetworkManagerCost::metered() const {
  if (!manager_.available()) return std::nullopt;
  const auto found = manager_.values().find("Metered");
  if (found == manager_.values().end()) return std::nullopt;
  const auto* value = found->second.getIf<std::int64_t>();
  return value ? fromMetered(*value) : std::nullopt;
}

void NetworkManagerCost::onChange(std::function<void()> handler) {
  manager_.onChange(std::move(handler));
}

std::optional<bool> NetworkManagerCost::fromMetered(std::int64_t value) {
  switch (value) {
    case 1:
    case 3:
      return true;
    case 2:
    case 4:
      return false;
    default:
      return std::nullopt;
  }
}

}  // namespace velmo::platform::linux
