#pragma once

#include <optional>
#include <string>
#include <vector>

#include <asio/awaitable.hpp>

#include "agent/run/InstallCounter.h"
#include "agent/run/InventoryUpdater.h"
#include "agent/runner/RunCommandBuilder.h"
#include "agent/runner/VelmoRunner.h"
#include "core/Executors.h"
#include "core/logging/CustomLogger.h"
#include "core/plist/Defaults.h"
#include "mdm/ManagedPrefs.h"
#include "mdm/PreferenceSnapshot.h"
#include "platform/DistributedNotificationCenter.h"
#include "platform/UserDefaults.h"

namespace velmo::agent::run {

// One update run's worth of work: policy becomes the tool's command lines,
// which run one after the other; installs the tool reports meanwhile are
// counted; the notifier and the inventory hear that the run is over. Built
// for one run and dropped after it. Policy is read at the moment of use.
class VelmoRunJob {
 public:
  struct Collaborators {
    core::Executor mainExecutor;
    platform::UserDefaults& userDefaults;
    mdm::ManagedPrefs& managedPrefs;
    platform::DistributedNotificationCenter& distributedCenter;
    VelmoRunner& runner;
    InventoryUpdater& inventory;
  };

  static constexpr core::TimeInterval kReconTimeout{600.0};

  // How the run's commands went.
  struct Outcome {
    int failed = 0;
    int notStarted = 0;
    std::int64_t installs = 0;
  };

  VelmoRunJob(const Collaborators& collaborators, bool runningAppsFirst);

  asio::awaitable<Outcome> run();
  // The policy as it stands now, made into command lines.
  asio::awaitable<std::vector<Command>> buildCommands();
  void handleDidPerformInstall();

  // The tool's time limit for a command, by its first argument.
  static core::TimeInterval timeLimit(const Command& command);
  // The policy a run's command lines are made from, as the stores hold it now.
  static RunPolicy readPolicy(const platform::UserDefaults& userDefaults,
                              const mdm::PreferenceSnapshot& snapshot,
                              const core::CustomLogger& logger);

 private:
  // Runs each command in turn, counting those that failed or never started.
  asio::awaitable<Outcome> runCommands(const std::vector<Command>& commands);
  asio::awaitable<void> observeInstalls();
  asio::awaitable<void> stopObservingInstalls();

  Collaborators collaborators_;
  core::CustomLogger logger_{"VelmoRunJob"};
  bool runningAppsFirst_;
  core::Defaults<bool> _reconAfterInstall;
  InstallCounter installCounter_;
  std::optional<platform::ObserverToken> observer_;
};

}  // namespace velmo::agent::run
