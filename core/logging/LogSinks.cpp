#include "core/logging/LogSinks.h"

namespace velmo::core {
namespace {

LogSinks& installed() {
  static LogSinks sinks;
  return sinks;
}

}  // namespace

const LogSinks& LogSinks::current() { return installed(); }

void LogSinks::install(const LogSinks& sinks) { installed() = sinks; }

ScopedLogSinks::ScopedLogSinks(const LogSinks& sinks) : previous_(LogSinks::current()) {
  LogSinks::install(sinks);
}

ScopedLogSinks::~ScopedLogSinks() { LogSinks::install(previous_); }

}  // namespace velmo::core
