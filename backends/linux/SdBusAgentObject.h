#pragma once

#include <atomic>
#include <memory>
#include <string>

#include "backends/linux/SdBusConnection.h"
#include "core/Lifetime.h"
#include "core/logging/CustomLogger.h"
#include "platform/AgentStatusPublisher.h"

namespace velmo::platform::linux {

// The agent's status on the system bus, read-only: the object
// /com/marvenith/velmo/Agent with the properties of SdBusAgentStatusCodec,
// under the well-known name com.marvenith.velmo.Agent. The name is asked for
// on every connection; when another program has it, the request waits in the
// daemon's queue and this is logged once, as a warning. A publish that changes
// wire values emits one PropertiesChanged naming just those, with their new
// values; any other publish, or one while disconnected, emits nothing.
// Built before the connection's own thread (if any) starts; publish() may be
// called from any thread, everything else runs on the connection's executor.
class SdBusAgentObject final : public AgentStatusPublisher {
 public:
  explicit SdBusAgentObject(SdBusConnection& connection);
  ~SdBusAgentObject() override;
  SdBusAgentObject(const SdBusAgentObject&) = delete;
  SdBusAgentObject& operator=(const SdBusAgentObject&) = delete;

  // Kept while disconnected too, and served again on the next connection.
  void publish(const AgentStatus& status) override;
  // What the properties show now. The connection's executor only.
  const AgentStatus& status() const { return status_; }

 private:
  void apply(const AgentStatus& status);
  void requestName();
  void nameAnswered(sd_bus_message* reply);
  void nameRefused(const std::string& reason);

  SdBusConnection& connection_;
  core::CustomLogger logger_{"SdBusAgentObject"};
  AgentStatus status_{};
  SdBusConnection::ObjectId object_ = 0;
  // Set by the first failure to own the name, cleared once it is owned, so
  // that retries on every reconnection log nothing new.
  bool warned_ = false;
  core::Lifetime lifetime_;
};

}  // namespace velmo::platform::linux
