#pragma once

#include <sys/types.h>

namespace velmo::platform {

// Facts about the running process that come from the operating system.
class Host {
 public:
  virtual ~Host() = default;
  virtual uid_t effectiveUserId() const = 0;
};

}  // namespace velmo::platform
