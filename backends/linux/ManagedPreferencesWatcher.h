#pragma once

#include <chrono>
#include <memory>
#include <string_view>

#include <asio/any_io_executor.hpp>

#include "platform/Clock.h"
#include "platform/DistributedNotificationCenter.h"
#include "platform/Paths.h"

namespace velmo::core {
class NotificationCenter;
}

namespace velmo::platform::linux {

// Stands in for the management layer's change events. Watches the managed
// preferences folder and the agent's own two stores with inotify, and once a
// burst of changes has settled posts what a Mac posts when a profile changes:
// the two management notifications with the changed managed domains, and the
// in-process user-defaults change when a store of the agent's domain changed.
// Runs on the main executor; no thread, no polling.
class ManagedPreferencesWatcher {
 public:
  // The domain of the agent's standard user defaults.
  static constexpr std::string_view kUserDefaultsDomain = "com.marvenith.velmo-agent";
  // Quiet time after the last change before the events go out.
  static constexpr Duration kSettleTime = std::chrono::milliseconds(200);

  struct Collaborators {
    asio::any_io_executor executor;
    Clock& clock;
    const Paths& paths;
    DistributedNotificationCenter& distributedCenter;
    core::NotificationCenter& notificationCenter;
  };

  // Creates missing folders (mode 0755) and starts watching at once. Where
  // inotify can't be set up, logs one error and posts nothing ever after.
  // The collaborators other than `paths` must outlive the watcher.
  explicit ManagedPreferencesWatcher(const Collaborators& collaborators);
  ~ManagedPreferencesWatcher();
  ManagedPreferencesWatcher(const ManagedPreferencesWatcher&) = delete;
  ManagedPreferencesWatcher& operator=(const ManagedPreferencesWatcher&) = delete;

 private:
  class State;
  // Shared with the pending read and the settle timer, which hold it weakly.
  std::shared_ptr<State> state_;
};

}  // namespace velmo::platform::linux
