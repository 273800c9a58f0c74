#include "agent/policy/MDMChangeObserver.h"

#include "core/notifications/NotificationNames.h"

namespace velmo::agent::policy {

MDMChangeObserver::MDMChangeObserver(const Collaborators& collaborators, std::string domain)
    : collaborators_(collaborators),
      domain_(std::move(domain)),
      // At start whatever is read is taken, an empty policy too.
      config_(VelmoRunConfig::read(collaborators.userDefaults)),
      mdmChangeSubject_(
          {collaborators.mainExecutor, collaborators.clock, collaborators.distributedCenter},
          domain_, kQuietTime, [this] { reload(); }) {
  logger_.debug("MDMChangeObserver initialized");
}

MDMChangeObserver::~MDMChangeObserver() { logger_.debug("MDMChangeObserver deinitialized"); }

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
