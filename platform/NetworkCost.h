#pragma once

#include <functional>
#include <optional>

namespace velmo::platform {

// Whether the network the machine uses now is paid by the byte (a phone's
// hotspot, a metered plan), as the platform's network service says.
class NetworkCost {
 public:
  virtual ~NetworkCost() = default;
  // True for metered (also when the service only guesses so), false for
  // unmetered; none while no network service answers or it doesn't know.
  virtual std::optional<bool> metered() const = 0;
  // Called on the main executor after metered() changed.
  virtual void onChange(std::function<void()> handler) = 0;
};

}  // namespace velmo::platform
