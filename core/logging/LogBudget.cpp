#include "core/logging/LogBudget.h"

namespace velmo::core {
namespace {

constexpr Duration kMinute = std::chrono::minutes(1);

}  // namespace

LogBudget::LogBudget(const CustomLogger& logger, platform::Clock& clock,
                     asio::any_io_executor executor, int linesPerMinute)
    : logger_(logger),
      clock_(clock),
      executor_(std::move(executor)),
      linesPerMinute_(linesPerMinute) {}

void LogBudget::warning(const std::string& kind, const std::string& what,
                        const std::function<std::string()>& line) {
  if (admit(kind, what)) logger_.log(line, LogLevel::warning);
}

void LogBudget::error(const std::string& kind, const std::string& what,
                      const std::function<std::string()>& line) {
  if (admit(kind, what)) logger_.log(line, LogLevel::error);
}

bool LogBudget::admit(const std::string& kind, const std::string& what) {
  Minute& minute = minutes_[kind];
  const ElapsedPoint now = clock_.elapsed();
  if (!minute.summary && now - minute.start >= kMinute) {
    minute.start = now;
    minute.lines = 0;
  }
  if (minute.lines < linesPerMinute_) {
    ++minute.lines;
    return true;
  }
  ++minute.heldBack;
  if (!minute.summary) {
    minute.summary = clock_.scheduleAfter(minute.start + kMinute - now, executor_,
                                          [this, kind, what] { summarize(kind, what); });
  }
  return false;
}

void LogBudget::summarize(const std::string& kind, const std::string& what) {
  Minute& minute = minutes_[kind];
  logger_.warning("Suppressed " + std::to_string(minute.heldBack) + " " + what +
                  " in the last minute.");
  // The next minute starts now, with its lines unspent.
  minute.start = clock_.elapsed();
  minute.lines = 0;
  minute.heldBack = 0;
  minute.summary.reset();
}

}  // namespace velmo::core
