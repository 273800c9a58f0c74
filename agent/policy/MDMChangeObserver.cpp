#include "agent/policy/MDMChangeObserver.h"

#include "core/notifications/NotificationNames.h"

namespace velmo::agent::policy {

MDMChangeObserver::MDMChangeObserver(const Collaborators& collaborators, std::string domain)
    : collaborators_(collaborators),
      domain_(std::move(domain)),
      // At start whatever is read is taken, an empty policy too.
      config_(VelmoRunConfig::read(collaborators.userDefaults)),
      mdmChangeSubject_(collaborators.mainExecutor, collaborators.clock, kQuietTime,
                        [this] { reload(); }) {
  logger_.debug("MDMChangeObserver initialized");
  token_ = collaborators_.distributedCenter.addObserver(
      core::NotificationName::managementStatusChangedForDomains,
      [this](const platform::DistributedNotification& n) { handleMDMChange(n); });
}

MDMChangeObserver::~MDMChangeObserver() {
  collaborators_.distributedCenter.removeObserver(token_);
  logger_.debug("MDMChangeObserver deinitialized");
}

void MDMChangeObserver::handleMDMChange(const platform::DistributedNotification& notification) {
  if (mentionsDomain(notification, domain_)) mdmChangeSubject_.trigger();
}

bool MDMChangeObserver::mentionsDomain(const platform::DistributedNotification& notification,
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

void MDMChangeObserver::reload() {
  VelmoRunConfig fresh = VelmoRunConfig::read(collaborators_.userDefaults);
  if (fresh.isEmpty() && config_.value().hasRunScope()) {
    logger_.debug("Suppressed empty MDM Velmo Run Config during redeploy.");
    return;
  }
  if (fresh == config_.value()) return;
  config_.set(std::move(fresh));
}

}  // namespace velmo::agent::policy
