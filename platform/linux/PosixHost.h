#pragma once

#include "platform/Host.h"

namespace velmo::platform::linux {

class PosixHost final : public Host {
 public:
  uid_t effectiveUserId() const override;
};

}  // namespace velmo::platform::linux
