#pragma once

#include <functional>

#include "platform/DistributedNotificationCenter.h"

namespace velmo::platform {

enum class WorkspaceEvent { willSleep, didWake, willPowerOff };

// Sleep, wake and power-off of the machine. Handlers run on the main executor.
class WorkspaceEvents {
 public:
  using Handler = std::function<void(WorkspaceEvent)>;

  virtual ~WorkspaceEvents() = default;
  virtual ObserverToken addObserver(Handler handler) = 0;
  virtual void removeObserver(ObserverToken token) = 0;
};

}  // namespace velmo::platform
