#pragma once

#include <cstddef>
#include <string>
#include <vector>

#include "agent/maintenance/MaintenanceActivity.h"
#include "agent/run/RunActivity.h"
#include "core/AgentLifecycle.h"
#include "core/Published.h"
#include "platform/ServiceManager.h"

namespace velmo::agent {

// What the service manager shows of the agent (`systemctl status`): one line
// whenever it changes, and what a stop would wait for. While the agent stops,
// the stop says its own lines. Main executor only.
class ServiceStatus {
 public:
  ServiceStatus(platform::ServiceManager& manager, const core::AgentLifecycle& lifecycle);
  ServiceStatus(const ServiceStatus&) = delete;
  ServiceStatus& operator=(const ServiceStatus&) = delete;

  void follow(core::Published<run::RunActivity>& runs,
              core::Published<maintenance::MaintenanceActivity>& maintenance,
              core::Published<std::size_t>& toolRuns, core::Published<std::size_t>& items);

  // "Idle; next Velmo Run at …; 2 pending items." and the like.
  static std::string line(const run::RunActivity& runs,
                          const maintenance::MaintenanceActivity& maintenance, std::size_t items);
  // "a scheduled Velmo Run, 2 tool runs"; empty when nothing runs.
  static std::string busy(const run::RunActivity& runs,
                          const maintenance::MaintenanceActivity& maintenance,
                          std::size_t toolRuns);

  // What a stop would wait for now.
  core::Published<std::string>& busyNow() { return busy_; }

 private:
  void update();

  platform::ServiceManager& manager_;
  const core::AgentLifecycle& lifecycle_;
  run::RunActivity runs_;
  maintenance::MaintenanceActivity maintenance_;
  std::size_t toolRuns_ = 0;
  std::size_t items_ = 0;
  std::string said_;
  core::Published<std::string> busy_{std::string()};
  std::vector<core::Subscription> cancellables_;
};

}  // namespace velmo::agent
