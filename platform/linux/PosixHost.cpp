#include "platform/linux/PosixHost.h"

#include <unistd.h>

namespace velmo::platform::linux {

uid_t PosixHost::effectiveUserId() const { return ::geteuid(); }

}  // namespace velmo::platform::linux
