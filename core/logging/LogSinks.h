#pragma once

#include <cstdio>

#include "core/logging/RecentLines.h"
#include "platform/Clock.h"
#include "platform/UnifiedLog.h"

namespace velmo::core {

// Where every CustomLogger of the process writes. The composition root
// installs them once at start, before any other thread exists; tests install
// their own for a scope. Null members mean: stdout, no unified log, system
// time, no error lines kept.
struct LogSinks {
  std::FILE* standardOutput = nullptr;
  platform::UnifiedLog* unifiedLog = nullptr;
  const platform::Clock* clock = nullptr;
  // Keeps the last error lines, for the inventory report; none keeps nothing.
  RecentLines* recentErrors = nullptr;

  static const LogSinks& current();
  static void install(const LogSinks& sinks);
};

// Installs sinks for the lifetime of the object and restores the previous ones.
class ScopedLogSinks {
 public:
  explicit ScopedLogSinks(const LogSinks& sinks);
  ~ScopedLogSinks();
  ScopedLogSinks(const ScopedLogSinks&) = delete;
  ScopedLogSinks& operator=(const ScopedLogSinks&) = delete;

 private:
  LogSinks previous_;
};

}  // namespace velmo::core
