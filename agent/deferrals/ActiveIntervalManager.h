#pragma once

#include <filesystem>
#include <memory>
#include <optional>
#include <set>
#include <string>
#include <vector>

#include <asio/awaitable.hpp>

#include "agent/items/UIController.h"
#include "agent/runner/VelmoRunner.h"
#include "core/Executors.h"
#include "core/Lifetime.h"
#include "core/deferrals/DialogResponse.h"
#include "core/items/UpdateItem.h"
#include "core/logging/CustomLogger.h"
#include "core/logging/PostLog.h"
#include "platform/ApplicationTerminations.h"
#include "platform/Clock.h"
#include "platform/DistributedNotificationCenter.h"

namespace velmo::agent::deferrals {

// Updates an application the moment its user quits it, when it has an update
// listed or recently deferred, unless it is being installed right now. Both
// sets live in memory only. A deferral from another account than root counts
// only for a listed item, and at that item's path (the list is root's
// record), so no account chooses what root installs. The updates run on the
// agent queue's concurrent side, sharing its bound. Lives on the main executor.
class ActiveIntervalManager {
 public:
  static constexpr core::TimeInterval kSettleDelay{1.0};
  // Each set holds an entry per application that a user deferred or that is
  // being installed: a few dozen on one Mac. Any account can post deferrals,
  // so beyond this the oldest entry goes.
  static constexpr std::size_t kMaxEntries = 1000;
  // An update of an app is an install: the tool's install limit.
  static constexpr core::TimeInterval kUpdateLimit{5400.0};

  struct Collaborators {
    core::Executor mainExecutor;
    platform::Clock& clock;
    platform::DistributedNotificationCenter& distributedCenter;
    platform::ApplicationTerminations& terminations;
    run::VelmoRunner& runner;
    core::PostLog& postLog;
    items::VelmoAgentQueue& agentQueue;
  };

  ActiveIntervalManager(const Collaborators& collaborators,
                        std::shared_ptr<items::UIController> uiController);
  ~ActiveIntervalManager();
  ActiveIntervalManager(const ActiveIntervalManager&) = delete;
  ActiveIntervalManager& operator=(const ActiveIntervalManager&) = delete;

  void handleDialogResponse(const platform::DistributedNotification& notification);
  void handleWillPerformInstall(const platform::DistributedNotification& notification);
  void handleDidPerformInstall(const platform::DistributedNotification& notification);
  void handleTerminationNotification(const std::optional<std::filesystem::path>& bundle);

  // One per identifier / id, in order of arrival.
  const std::vector<core::DialogResponse>& recentlyDeferredApps() const {
    return recentlyDeferredApps_;
  }
  const std::vector<core::UpdateItem>& ignoredApps() const { return ignoredApps_; }

  // The form paths are compared in: a file URL made of the path, and its path back.
  static std::string normalizedPath(const std::string& path);
  // The tool's command line that updates an app its user has just quit.
  static std::vector<std::string> updateCommand(const std::string& identifier);

 private:
  void activeIntervalUpdate(const std::string& identifier);
  // A deferral as it is remembered: from root as posted; from another
  // account only for a listed item, with that item's path. None: not kept.
  std::optional<core::DialogResponse> remembered(
      const core::DialogResponse& response, const platform::DistributedNotification& post) const;
  // The item of a notification's object; none, with the error line, when it doesn't decode.
  template <typename T>
  static void insertBounded(std::vector<T>& set, const T& element);
  std::optional<core::UpdateItem> decodedItem(
      const platform::DistributedNotification& notification) const;
  void observe(std::string_view name,
               void (ActiveIntervalManager::*handler)(const platform::DistributedNotification&));

  Collaborators collaborators_;
  core::CustomLogger logger_{"ActiveIntervalManager"};
  std::shared_ptr<items::UIController> uiController_;
  std::vector<core::DialogResponse> recentlyDeferredApps_;
  std::vector<core::UpdateItem> ignoredApps_;
  // Identifiers whose active interval update waits or runs.
  std::set<std::string> inWork_;
  std::vector<platform::ObserverToken> observers_;
  platform::ObserverToken terminationObserver_;
  core::Lifetime lifetime_;
};

}  // namespace velmo::agent::deferrals
