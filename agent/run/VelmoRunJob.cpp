#include "agent/run/VelmoRunJob.h"

#include "core/items/ToolIdentifier.h"
#include "core/notifications/NotificationNames.h"

namespace velmo::agent::run {
VelmoRunJob::VelmoRunJob(const Collaborators& collaborators, bool runningAppsFirst)
    : collaborators_(collaborators),
      runningAppsFirst_(runningAppsFirst),
      _reconAfterInstall(collaborators.userDefaults, "ReconAfterInstall", false),
      installCounter_(collaborators.mainExecutor) {
  logger_.debug(std::string("VelmoRunJob initialized. runningAppsFirst: ") +
                (runningAppsFirst ? "true" : "false"));
}

core::TimeInterval VelmoRunJob::timeLimit(const Command& command) {
  if (!command.empty() && command.front() == "update-all") return core::TimeInterval(7200.0);
  if (!command.empty() && command.front() == "install") return core::TimeInterval(5400.0);
  return core::TimeInterval(3600.0);
}

void VelmoRunJob::handleDidPerformInstall() { installCounter_.add(); }

RunPolicy VelmoRunJob::readPolicy(const platform::UserDefaults& userDefaults,
                                  const mdm::PreferenceSnapshot& snapshot,
                                  const core::CustomLogger& logger) {
  const auto flag = [&](std::string_view key) {
    return core::Defaults<bool>::read(userDefaults, key, false);
  };
  const auto ids = [&](std::string_view key) {
    return core::ToolIdentifier::admitted(
        core::Defaults<std::vector<std::string>>::read(userDefaults, key, {}), key, logger);
  };
  const auto text = [&](std::string_view key) {
    return core::Defaults<std::optional<std::string>>::read(userDefaults, key, std::nullopt);
  };
  RunPolicy policy;
  policy.updateAll = flag("UpdateAll");
  policy.updateAllExclusions = ids("UpdateAllExclusions");
  policy.installOrUpdateIDs = ids("InstallOrUpdate");
  policy.updateOnlyIDs = ids("UpdateOnly");
  policy.deferIfRunning = flag("DeferIfRunning");
  policy.respectDND = flag("RespectDND");
  policy.respectMeetings = flag("RespectMeetings");
  policy.updateMAS = flag("UpdateMAS");
  policy.updateChannel = text("UpdateChannel");
  policy.integrityPolicyRaw = text("IntegrityPolicy");
  policy.disableSelfUpdate =
      snapshot.boolValue("DisableSelfUpdate", mdm::ManagedDomain::velmoAgent, false);
  policy.enableMenuBarApp =
      snapshot.boolValue("EnableMenuBarApp", mdm::ManagedDomain::velmoNotifier, false);
  return policy;
}

asio::awaitable<std::vector<Command>> VelmoRunJob::buildCommands() {
  const auto snapshot = co_await collaborators_.managedPrefs.snapshot();
  co_return RunCommandBuilder::build(readPolicy(collaborators_.userDefaults, *snapshot, logger_),
                                     runningAppsFirst_);
}

// The bus is serviced on the main executor; observers are added and removed there.
asio::awaitable<void> VelmoRunJob::observeInstalls() {
  observer_ = collaborators_.distributedCenter.addObserver(
      core::NotificationName::didPerformInstall,
      [this](const platform::DistributedNotification&) { handleDidPerformInstall(); });
  co_return;
}

asio::awaitable<void> VelmoRunJob::stopObservingInstalls() {
  if (observer_) collaborators_.distributedCenter.removeObserver(*observer_);
  observer_.reset();
  co_return;
}

asio::awaitable<VelmoRunJob::Outcome> VelmoRunJob::runCommands(
    const std::vector<Command>& commands) {
  Outcome outcome;
  for (const Command& command : commands) {
    const std::string text = joined(command);
    logger_.debug("Executing Velmo Run command: " + text);
    const int result = co_await collaborators_.runner.run(command, timeLimit(command));
    if (result == VelmoRunner::kNotStarted) {
      ++outcome.notStarted;
      logger_.debug("Velmo Run command not started, the agent is stopping: " + text);
    } else if (result != 0) {
      ++outcome.failed;
      logger_.error("Velmo Run failed with exit code: " + std::to_string(result));
      logger_.debug("Velmo Run failed with exit code " + std::to_string(result) +
                    " for command: " + text);
    } else {
      logger_.debug("Velmo Run completed successfully for command: " + text);
    }
  }
  co_return outcome;
}

asio::awaitable<VelmoRunJob::Outcome> VelmoRunJob::run() {
  logger_.debug("Setting up velmo install observers.");
  co_await core::runOn(collaborators_.mainExecutor, observeInstalls());

  const std::vector<Command> commands = co_await buildCommands();
  logger_.debug("Starting Velmo Run with " + std::to_string(commands.size()) + " command(s)");
  Outcome outcome = co_await runCommands(commands);

  const std::int64_t installs = co_await installCounter_.takeAndReset();
  outcome.installs = installs;
  if (installs >= 1) {
    logger_.info("Installations during this Velmo Run: " + std::to_string(installs));
  } else {
    logger_.info("No installations occurred during this Velmo Run.");
  }

  if (co_await collaborators_.managedPrefs.boolValue("EnableMenuBarApp",
                                                     mdm::ManagedDomain::velmoNotifier, false)) {
    logger_.debug("Posting notification that the Velmo Run has completed.");
    collaborators_.distributedCenter.post(core::NotificationName::velmoAgentUpdateTasksCompleted);
  }

  if (_reconAfterInstall.wrappedValue()) {
    // The result plays no part: the run is over either way.
    (void)co_await collaborators_.inventory.runRecon(kReconTimeout);
  }

  logger_.debug("Removing velmo install observers.");
  co_await core::runOn(collaborators_.mainExecutor, stopObservingInstalls());
  co_return outcome;
}

}  // namespace velmo::agent::run
