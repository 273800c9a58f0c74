#include "agent/policy/ManagedDomainChanges.h"

#include "core/notifications/NotificationNames.h"

namespace velmo::agent::policy {

ManagedDomainChanges::ManagedDomainChanges(const Collaborators& collaborators, std::string domain,
                                           platform::Duration quietTime,
                                           std::function<void()> action)
    : distributedCenter_(collaborators.distributedCenter),
      domain_(std::move(domain)),
      debouncer_(collaborators.mainExecutor, collaborators.clock, quietTime, std::move(action)) {
  token_ =
      distributedCenter_.addObserver(core::NotificationName::managementStatusChangedForDomains,
                                     [this](const platform::DistributedNotification& notification) {
                                       if (mentionsDomain(notification, domain_))
                                         debouncer_.trigger();
                                     });
}

ManagedDomainChanges::~ManagedDomainChanges() { distributedCenter_.removeObserver(token_); }

bool ManagedDomainChanges::mentionsDomain(const platform::DistributedNotification& notification,
                                          std::string_view domain) {
  if (!notification.userInfo) return false;
  const auto found = notification.userInfo->find(core::kChangedDomainsKey);
  if (found == notification.userInfo->end()) return false;
  const auto* domains = found->second.getIf<core::PlistArray>();
  if (!domains) return false;
  bool mentioned = false;
  for (const auto& element : *domains) {
    const auto* name = element.getIf<std::string>();
    if (!name) return false;  // Not an array of strings.
    mentioned = mentioned || *name == domain;
  }
  return mentioned;
}

}  // namespace velmo::agent::policy
