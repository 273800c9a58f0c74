#pragma once

#include <functional>
#include <string>
#include <string_view>

#include "core/Debouncer.h"
#include "core/Executors.h"
#include "platform/Clock.h"
#include "platform/DistributedNotificationCenter.h"

namespace velmo::agent::policy {

// "The administrator changed this managed domain", debounced: calls `action`
// once `quietTime` has passed after the last management-status notification
// that names the domain. A burst of profile changes is one call. Lives on the
// main executor; stops observing when destroyed.
class ManagedDomainChanges {
 public:
  struct Collaborators {
    core::Executor mainExecutor;
    platform::Clock& clock;
    platform::DistributedNotificationCenter& distributedCenter;
  };

  ManagedDomainChanges(const Collaborators& collaborators, std::string domain,
                       platform::Duration quietTime, std::function<void()> action);
  ~ManagedDomainChanges();
  ManagedDomainChanges(const ManagedDomainChanges&) = delete;
  ManagedDomainChanges& operator=(const ManagedDomainChanges&) = delete;

  // Whether a policy notification names `domain` among its changed domains.
  // A user info of any other shape names none.
  static bool mentionsDomain(const platform::DistributedNotification& notification,
                             std::string_view domain);

 private:
  platform::DistributedNotificationCenter& distributedCenter_;
  std::string domain_;
  core::Debouncer debouncer_;
  platform::ObserverToken token_;
};

}  // namespace velmo::agent::policy
