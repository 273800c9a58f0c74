#pragma once

#include <sys/types.h>

#include <filesystem>
#include <string>

namespace velmo::testing {

// A dbus-daemon of the test's own, standing in for the system bus: its
// address goes into DBUS_SYSTEM_BUS_ADDRESS for the lifetime of the object.
// It can be stopped and started again at the same address.
class PrivateBus {
 public:
  PrivateBus();
  ~PrivateBus();
  PrivateBus(const PrivateBus&) = delete;
  PrivateBus& operator=(const PrivateBus&) = delete;

  void start();
  void stop();
  const std::string& address() const { return address_; }

 private:
  std::filesystem::path directory_;
  std::filesystem::path socket_;
  std::string address_;
  pid_t pid_ = -1;
};

}  // namespace velmo::testing
