#pragma once

#include <functional>

#include "platform/DistributedNotificationCenter.h"

namespace velmo::platform {

// `powerOffCancelled`: a power-off that was announced did not happen.
enum class WorkspaceEvent { willSleep, didWake, willPowerOff, powerOffCancelled };

// Sleep, wake and power-off of the machine. Handlers run on the main executor.
class WorkspaceEvents {
 public:
  using Handler = std::function<void(WorkspaceEvent)>;

  virtual ~WorkspaceEvents() = default;
  virtual ObserverToken addObserver(Handler handler) = 0;
  virtual void removeObserver(ObserverToken token) = 0;
};

}  // namespace velmo::platform
