#pragma once

#include <string>
#include <vector>

#include "platform/ServiceManager.h"

namespace velmo::platform::fake {

// Keeps every message in the protocol's own words ("READY=1", "STATUS=…").
class RecordingServiceManager final : public ServiceManager {
 public:
  void ready() override { messages.push_back("READY=1"); }
  void status(const std::string& line) override { messages.push_back("STATUS=" + line); }
  void stopping() override { messages.push_back("STOPPING=1"); }
  void extendTimeout(core::Duration more) override {
    messages.push_back(
        "EXTEND_TIMEOUT_USEC=" +
        std::to_string(std::chrono::duration_cast<std::chrono::microseconds>(more).count()));
  }
  std::vector<std::string> messages;
};

}  // namespace velmo::platform::fake
