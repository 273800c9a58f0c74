#pragma once

#include "platform/AgentStatusReader.h"

namespace velmo::platform::linux {

class SdBusAgentStatusReader final : public AgentStatusReader {
 public:
  std::optional<RunningAgent> read() const override { return std::nullopt; }
};

}  // namespace velmo::platform::linux
