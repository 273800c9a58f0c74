#pragma once

#include "platform/ServiceManager.h"

namespace velmo::platform::linux {

// systemd's notification protocol (`sd_notify`, `Type=notify`): READY=1,
// STATUS=, STOPPING=1 and EXTEND_TIMEOUT_USEC= to the socket named by
// NOTIFY_SOCKET. Without that variable every call does nothing.
class SdNotifyServiceManager final : public ServiceManager {
 public:
  void ready() override;
  void status(const std::string& line) override;
  void stopping() override;
  void extendTimeout(core::Duration more) override;
};

}  // namespace velmo::platform::linux
