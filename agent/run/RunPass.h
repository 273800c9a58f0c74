#pragma once

#include <cstdint>
#include <functional>
#include <memory>
#include <string>

#include <asio/awaitable.hpp>

#include "agent/policy/VelmoRunConfig.h"
#include "agent/run/InventoryUpdater.h"
#include "agent/run/ListedItems.h"
#include "agent/run/ListedItemsComparison.h"
#include "agent/run/RunConditionWatch.h"
#include "agent/run/RunRecord.h"
#include "agent/run/VelmoRunJob.h"
#include "agent/runner/VelmoRunner.h"
#include "core/Executors.h"
#include "core/logging/CustomLogger.h"
#include "mdm/ManagedPrefs.h"
#include "platform/Clock.h"
#include "platform/DistributedNotificationCenter.h"
#include "platform/UserDefaults.h"

namespace velmo::agent::run {

// The run a pass of the gate starts: the windows and the first-run skip may
// refuse it; otherwise the listed items are compared with the tool, the job
// runs, and the run is recorded when it ends. Used on the main executor.
class RunPass {
 public:
  static constexpr int kRefusedRunSearchDays = 14;

  struct Collaborators {
    core::Executor mainExecutor;
    platform::Clock& clock;
    platform::UserDefaults& userDefaults;
    mdm::ManagedPrefs& managedPrefs;
    platform::DistributedNotificationCenter& distributedCenter;
    VelmoRunner& runner;
    InventoryUpdater& inventory;
    RunRecord& record;
    RunConditionWatch& conditions;
    // The run coordinator's policy in force and its link to the listed items,
    // both read when a run starts.
    const policy::VelmoRunConfig& config;
    const std::weak_ptr<ListedItems>& uiController;
    // The system's time zone at the moment of asking; windows are judged in it.
    std::function<std::string()> currentTimeZone;
    // The coordinator's: the pass speaks for it.
    const core::CustomLogger& logger;
  };

  explicit RunPass(Collaborators collaborators);

  // How the log names a run.
  static std::string runLabel(bool userInitiated);

  asio::awaitable<void> run(bool userInitiated);

 private:
  asio::awaitable<bool> shouldSkipRun();
  // The window check of a run, with its log lines; nothing is recorded for a refused run.
  bool windowsAllow(bool userInitiated, platform::TimePoint now) const;
  // One job, built for this run and dropped after it; the job can't fail as a whole.
  asio::awaitable<VelmoRunJob::Outcome> runJob(bool userInitiated);
  static std::string resultText(const VelmoRunJob::Outcome& outcome);
  // Kept as the last run, for the inventory report.
  void remember(LastRun lastRun);

  Collaborators collaborators_;
  ListedItemsComparison comparison_;
};

}  // namespace velmo::agent::run
