#pragma once

#include "platform/Host.h"

namespace velmo::platform::linux {

class PosixHost final : public Host {
 public:
  uid_t effectiveUserId() const override;
  // malloc_trim: also returns free pages from the middle of the heap, which
  // the allocator otherwise keeps after many small blocks were freed.
  void releaseFreeMemory() const override;
};

}  // namespace velmo::platform::linux
