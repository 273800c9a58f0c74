#pragma once

#include <string>

#include "core/values/Time.h"

namespace velmo::platform {

// The service manager that started the agent (launchd on the Mac, systemd
// here): told when the agent is ready, what it is doing, and that it is
// stopping. Where no service manager listens, every call does nothing.
class ServiceManager {
 public:
  virtual ~ServiceManager() = default;
  // The agent listens on the bus and its first run is armed.
  virtual void ready() = 0;
  // One short line of what the agent does now.
  virtual void status(const std::string& line) = 0;
  // A stop has begun.
  virtual void stopping() = 0;
  // The stop needs `more` time from now before the manager gives up on it.
  virtual void extendTimeout(core::Duration more) = 0;
};

}  // namespace velmo::platform
