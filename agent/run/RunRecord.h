#pragma once

#include <cstdint>
#include <filesystem>
#include <functional>
#include <optional>

#include "agent/run/LastRun.h"
#include "agent/run/PlistManager.h"
#include "agent/run/RunActivity.h"
#include "core/Published.h"
#include "platform/Clock.h"
#include "platform/FileManager.h"

namespace velmo::agent::run {

// What update runs have done and are doing: the count and the last run's date
// in the agent's state file, and the activity status shows, which starts from
// them. Used on the main executor.
class RunRecord {
 public:
  RunRecord(platform::FileManager& files, std::filesystem::path file,
            PlistManager::Retries retries);
  RunRecord(const RunRecord&) = delete;
  RunRecord& operator=(const RunRecord&) = delete;

  // The stored count; none when it is missing or no integer.
  std::optional<std::int64_t> runCount() const;
  // The stored date of the last run; none when it is missing or no date.
  std::optional<platform::TimePoint> lastRun() const;
  // Stores run `runNumber`, ended at `date`, as the last one, and shows it.
  void record(std::int64_t runNumber, platform::TimePoint date);

  // `change` applied to the activity, published when it differs.
  void updateActivity(const std::function<void(RunActivity&)>& change);
  core::Published<RunActivity>& activity() { return activity_; }
  const RunActivity& currentActivity() const { return activity_.value(); }

  // How the last run since the start went; none before the first.
  void remember(LastRun lastRun) { lastRun_ = std::move(lastRun); }
  const std::optional<LastRun>& lastRunSummary() const { return lastRun_; }

 private:
  PlistManager plistManager_;
  core::Published<RunActivity> activity_{RunActivity{}};
  std::optional<LastRun> lastRun_;
};

}  // namespace velmo::agent::run
