#pragma once

#include "platform/Host.h"

namespace velmo::platform::fake {

class FakeHost final : public Host {
 public:
  explicit FakeHost(uid_t effectiveUserId = 0) : effectiveUserId_(effectiveUserId) {}
  uid_t effectiveUserId() const override { return effectiveUserId_; }
  void releaseFreeMemory() const override {}

 private:
  uid_t effectiveUserId_;
};

}  // namespace velmo::platform::fake
