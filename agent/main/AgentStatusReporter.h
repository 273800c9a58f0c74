#pragma once

#include <string>
#include <vector>

#include "agent/maintenance/MaintenanceActivity.h"
#include "agent/run/RunActivity.h"
#include "core/Published.h"
#include "platform/AgentStatusPublisher.h"

namespace velmo::agent {

// Puts together what runs and housekeeping are doing into the agent's status
// and hands each change to the publisher. Lives on the main executor.
class AgentStatusReporter {
 public:
  AgentStatusReporter(platform::AgentStatusPublisher& publisher, std::string version,
                      platform::TimePoint startedAt);

  void follow(core::Published<run::RunActivity>& runs,
              core::Published<maintenance::MaintenanceActivity>& maintenance);
  const platform::AgentStatus& status() const { return status_; }

 private:
  void publish();

  platform::AgentStatusPublisher& publisher_;
  platform::AgentStatus status_;
  std::vector<core::Subscription> cancellables_;
};

}  // namespace velmo::agent
