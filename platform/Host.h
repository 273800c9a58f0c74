#pragma once

#include <sys/types.h>

namespace velmo::platform {

// Facts about the running process that come from the operating system.
class Host {
 public:
  virtual ~Host() = default;
  virtual uid_t effectiveUserId() const = 0;
  // Hands memory the process has freed back to the system, so that a burst
  // of work doesn't leave the resident size at its peak.
  virtual void releaseFreeMemory() const = 0;
};

}  // namespace velmo::platform
