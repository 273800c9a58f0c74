#pragma once

#include <any>
#include <string>
#include <vector>

#include "agent/deferrals/DeferralStorageManager.h"
#include "core/CustomLogger.h"
#include "core/NotificationCenter.h"
#include "platform/Clock.h"
#include "platform/DistributedNotificationCenter.h"
#include "platform/FileManager.h"
#include "platform/Paths.h"

namespace velmo::agent::deferrals {

// Turns users' deferring answers into stored deferrals, and clears an app's
// records once its update is installed or its item is dropped. Only records:
// no decision of the agent reads a count. Lives on the main executor.
class DeferralManager {
 public:
  struct Collaborators {
    platform::Clock& clock;
    platform::FileManager& files;
    const platform::Paths& paths;
    platform::DistributedNotificationCenter& distributedCenter;
    core::NotificationCenter& notificationCenter;
  };

  explicit DeferralManager(const Collaborators& collaborators);
  ~DeferralManager();
  DeferralManager(const DeferralManager&) = delete;
  DeferralManager& operator=(const DeferralManager&) = delete;

  void processUpdateDialogResponse(const platform::DistributedNotification& notification);
  void processInstallation(const platform::DistributedNotification& notification);
  // The object is an update item, posted in this process.
  void handleRemoveDeferralsForItem(const std::any& object);
  void recordDeferral(const std::string& appId, const std::string& targetVersion,
                      const std::string& reason);

 private:
  void postDeferralsDidChange();

  Collaborators collaborators_;
  core::CustomLogger logger_{"DeferralManager"};
  DeferralStorageManager storageManager_;
  std::vector<platform::ObserverToken> distributedObservers_;
  platform::ObserverToken localObserver_;
};

}  // namespace velmo::agent::deferrals
