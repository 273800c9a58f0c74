#pragma once

#include <chrono>
#include <optional>

#include "platform/AgentStatusReader.h"

namespace velmo::platform::linux {

// Reads the running agent's status off the system bus
// (DBUS_SYSTEM_BUS_ADDRESS when set), on a connection of its own opened for
// each read: GetAll of SdBusAgentObject's properties from the owner of
// com.marvenith.velmo.Agent, and the owner's pid from the bus daemon. Needs
// no privilege beyond what the bus policy grants every local user. For
// short-lived tools: read() blocks the calling thread, at most kTimeout.
class SdBusAgentStatusReader final : public AgentStatusReader {
 public:
  // For everything read() does, from connecting to the last answer.
  static constexpr std::chrono::seconds kTimeout{1};

  // Nothing when the bus can't be reached, nobody owns the name, or its owner
  // doesn't answer GetAll in time.
  std::optional<RunningAgent> read() const override;
};

}  // namespace velmo::platform::linux
