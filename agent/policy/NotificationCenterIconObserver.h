#pragma once

#include <memory>
#include <optional>
#include <string>

#include <asio/awaitable.hpp>

#include "agent/policy/ManagedDomainChanges.h"
#include "agent/runner/VelmoRunner.h"
#include "core/Executors.h"
#include "core/logging/CustomLogger.h"
#include "mdm/ManagedPrefs.h"
#include "platform/Clock.h"
#include "platform/DistributedNotificationCenter.h"

namespace velmo::agent::policy {

// Applies the administrator's notification icon for the companion app by
// running the tool: once at start, then whenever the managed value changes
// (5 quiet seconds after a policy notification for the companion's domain).
// A value is applied at most once per process, even when the tool fails; a
// cleared value leaves the icon as it is. Lives on the main executor.
class NotificationCenterIconObserver
    : public std::enable_shared_from_this<NotificationCenterIconObserver> {
 public:
  static constexpr platform::Duration kQuietTime = std::chrono::seconds(5);

  struct Collaborators {
    core::Executor mainExecutor;
    platform::Clock& clock;
    platform::DistributedNotificationCenter& distributedCenter;
    mdm::ManagedPrefs& managedPrefs;
    run::VelmoRunner& runner;
  };

  // Registers for policy notifications and starts the initial step.
  static std::shared_ptr<NotificationCenterIconObserver> make(const Collaborators& collaborators);
  ~NotificationCenterIconObserver();
  NotificationCenterIconObserver(const NotificationCenterIconObserver&) = delete;
  NotificationCenterIconObserver& operator=(const NotificationCenterIconObserver&) = delete;

  const std::optional<std::string>& currentIcon() const { return currentIcon_; }

 private:
  using Step = asio::awaitable<void> (NotificationCenterIconObserver::*)();

  explicit NotificationCenterIconObserver(const Collaborators& collaborators);

  void startStep(Step step);
  asio::awaitable<void> initialStep();
  asio::awaitable<void> changeStep();
  // The managed value; an empty string counts as none.
  asio::awaitable<std::optional<std::string>> readIcon();
  asio::awaitable<void> apply(std::string icon);

  Collaborators collaborators_;
  core::CustomLogger logger_{"NotificationCenterIconObserver"};
  ManagedDomainChanges mdmChangeSubject_;
  std::optional<std::string> currentIcon_;
};

}  // namespace velmo::agent::policy
