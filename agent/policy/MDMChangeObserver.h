#pragma once

#include <string>

#include "agent/policy/ManagedDomainChanges.h"
#include "agent/policy/VelmoRunConfig.h"
#include "core/Executors.h"
#include "core/Published.h"
#include "core/logging/CustomLogger.h"
#include "platform/Clock.h"
#include "platform/DistributedNotificationCenter.h"
#include "platform/UserDefaults.h"

namespace velmo::agent::policy {

// Watches for policy changes of one domain and publishes the re-read run
// policy once 5 quiet seconds have passed and it really changed. A suddenly
// empty policy doesn't replace one with a run scope: profiles are often
// removed and installed again during a redeploy. Lives on the main executor.
class MDMChangeObserver {
 public:
  static constexpr platform::Duration kQuietTime = std::chrono::seconds(5);

  struct Collaborators {
    core::Executor mainExecutor;
    platform::Clock& clock;
    platform::DistributedNotificationCenter& distributedCenter;
    const platform::UserDefaults& userDefaults;
  };

  MDMChangeObserver(const Collaborators& collaborators, std::string domain);
  ~MDMChangeObserver();
  MDMChangeObserver(const MDMChangeObserver&) = delete;
  MDMChangeObserver& operator=(const MDMChangeObserver&) = delete;

  core::Published<VelmoRunConfig>& config() { return config_; }
  const core::Published<VelmoRunConfig>& config() const { return config_; }

 private:
  void reload();

  Collaborators collaborators_;
  core::CustomLogger logger_{"MDMChangeObserver"};
  std::string domain_;
  core::Published<VelmoRunConfig> config_;
  ManagedDomainChanges mdmChangeSubject_;
};

}  // namespace velmo::agent::policy
