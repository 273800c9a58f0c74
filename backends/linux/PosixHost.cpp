#include "backends/linux/PosixHost.h"

#include <malloc.h>
#include <unistd.h>

namespace velmo::platform::linux {

uid_t PosixHost::effectiveUserId() const { return ::geteuid(); }

void PosixHost::releaseFreeMemory() const { ::malloc_trim(0); }

}  // namespace velmo::platform::linux
