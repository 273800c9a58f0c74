#pragma once

#include <set>
#include <string>
#include <vector>

#include <asio/awaitable.hpp>

#include "agent/policy/VelmoRunConfig.h"
#include "agent/runner/VelmoRunner.h"
#include "core/logging/CustomLogger.h"
#include "mdm/ManagedPrefs.h"

namespace velmo::agent::run {

// Runs the tool at once for the IDs a new policy added, outside the gate and
// the windows, with no time limit. Used on the main executor.
class NewItemsInstaller {
 public:
  // `config` is the run coordinator's policy in force, read when a task
  // starts; `logger` is the coordinator's, for whom this speaks.
  NewItemsInstaller(mdm::ManagedPrefs& managedPrefs, VelmoRunner& runner,
                    const policy::VelmoRunConfig& config, const core::CustomLogger& logger)
      : managedPrefs_(managedPrefs), runner_(runner), config_(config), logger_(logger) {}

  // "a, b": IDs as the log lists them.
  static std::string joinedIDs(const std::set<std::string>& ids);

  asio::awaitable<void> processInstallOrUpdateItems(std::set<std::string> ids);
  // Nothing while the policy in force updates everything anyway.
  asio::awaitable<void> processUpdateOnlyItems(std::set<std::string> ids);

 private:
  asio::awaitable<void> runNewItems(std::vector<std::string> arguments, std::string ids);

  mdm::ManagedPrefs& managedPrefs_;
  VelmoRunner& runner_;
  const policy::VelmoRunConfig& config_;
  const core::CustomLogger& logger_;
};

}  // namespace velmo::agent::run
