#pragma once

#include <string_view>

namespace velmo::agent::run {

// The keys of the agent state file.
enum class PlistKey {
  updateTaskRunCount,
  lastUpdateTaskRun,
  maintenanceTaskRunCount,
  lastMaintenanceTaskRun,
};

constexpr std::string_view keyString(PlistKey key) {
  switch (key) {
    case PlistKey::updateTaskRunCount:
      return "UpdateTaskRunCount";
    case PlistKey::lastUpdateTaskRun:
      return "LastUpdateTaskRun";
    case PlistKey::maintenanceTaskRunCount:
      return "MaintenanceTaskRunCount";
    case PlistKey::lastMaintenanceTaskRun:
      return "LastMaintenanceTaskRun";
  }
  return "";
}

}  // namespace velmo::agent::run
