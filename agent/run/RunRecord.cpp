#include "agent/run/RunRecord.h"

#include <utility>

namespace velmo::agent::run {

RunRecord::RunRecord(platform::FileManager& files, std::filesystem::path file,
                     PlistManager::Retries retries)
    : plistManager_(files, std::move(file), retries) {
  RunActivity initial;
  if (const auto count = runCount()) initial.runCount = *count;
  initial.lastRunDate = lastRun();
  activity_.set(initial);
}

std::optional<std::int64_t> RunRecord::runCount() const {
  const auto count = plistManager_.value(PlistKey::updateTaskRunCount);
  const auto* number = count ? count->getIf<std::int64_t>() : nullptr;
  if (!number) return std::nullopt;
  return *number;
}

std::optional<platform::TimePoint> RunRecord::lastRun() const {
  const auto last = plistManager_.value(PlistKey::lastUpdateTaskRun);
  const auto* date = last ? last->getIf<core::PlistDate>() : nullptr;
  if (!date) return std::nullopt;
  return date->value;
}

void RunRecord::record(std::int64_t runNumber, platform::TimePoint date) {
  plistManager_.setValue(core::PlistValue(runNumber), PlistKey::updateTaskRunCount);
  plistManager_.setValue(core::PlistValue(core::PlistDate{date}), PlistKey::lastUpdateTaskRun);
  updateActivity([runNumber, date](RunActivity& activity) {
    activity.runCount = runNumber;
    activity.lastRunDate = date;
  });
}

void RunRecord::updateActivity(const std::function<void(RunActivity&)>& change) {
  RunActivity fresh = activity_.value();
  change(fresh);
  if (fresh != activity_.value()) activity_.set(std::move(fresh));
}

}  // namespace velmo::agent::run
