#pragma once

#include <string>
#include <string_view>
#include <vector>

#include "platform/AgentStatus.h"

struct sd_bus_message;

namespace velmo::platform::linux {

// The wire form of the agent's status: read-only properties of
// com.marvenith.velmo.Agent on /com/marvenith/velmo/Agent, served under the
// well-known name com.marvenith.velmo.Agent. Dates are `t` microseconds since
// the Unix epoch, 0 meaning none (systemd's timestamps do the same); a date
// before the epoch goes out as 0. The one place the object and its readers
// agree on names and types.
class SdBusAgentStatusCodec {
 public:
  static constexpr const char* kBusName = "com.marvenith.velmo.Agent";
  static constexpr const char* kObjectPath = "/com/marvenith/velmo/Agent";
  static constexpr const char* kInterface = "com.marvenith.velmo.Agent";

  struct Property {
    const char* name;
    const char* signature;  // One basic type.
  };

  SdBusAgentStatusCodec() = delete;

  // Every property, in the order the object serves them.
  static std::vector<Property> properties();

  // Appends the value of `property` to a getter's reply; an sd-bus result.
  static int append(sd_bus_message* reply, std::string_view property, const AgentStatus& status);

  // The properties whose wire values differ.
  static std::vector<std::string> changed(const AgentStatus& before, const AgentStatus& after);

  // Decodes the `a{sv}` of a GetAll reply. Missing, unknown, wrongly typed or
  // out-of-range properties leave their field at its default; whatever the
  // reply holds, this only reads it.
  static AgentStatus read(sd_bus_message* reply);
};

}  // namespace velmo::platform::linux
