#pragma once

#include <cstdint>
#include <string>

#include "platform/Clock.h"

namespace velmo::agent::run {

// How the last run since the agent started went, for the inventory report.
struct LastRun {
  bool userInitiated = false;
  platform::TimePoint startedAt{};
  platform::TimePoint endedAt{};
  // "succeeded", "failed" (a command of the tool failed), "stopped" (the
  // agent stopped before a command could start) or "skipped" (the first run
  // skipped by policy).
  std::string result{};
  std::int64_t installs = 0;
};

}  // namespace velmo::agent::run
