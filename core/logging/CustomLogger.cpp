#include "core/logging/CustomLogger.h"

#include <cstdio>
#include <string>
#include <vector>

#include "core/logging/LogSinks.h"
#include "core/logging/Utf8.h"
#include "core/time/VelmoFormatters.h"
#include "core/values/Bundle.h"

namespace velmo::core {
namespace {

constexpr std::string_view kReset = "\x1b[0m";

struct LevelStyle {
  std::string_view colour;
  std::string_view marker;
  platform::UnifiedLogType unifiedType;
};

LevelStyle styleOf(LogLevel level) {
  switch (level) {
    case LogLevel::debug:
      return {"\x1b[37m", "", platform::UnifiedLogType::debug};
    case LogLevel::info:
      return {"\x1b[0m", "", platform::UnifiedLogType::info};
    case LogLevel::warning:
      return {"\x1b[33m", "WARNING:", platform::UnifiedLogType::error};
    case LogLevel::error:
      return {"\x1b[31m", "ERROR:", platform::UnifiedLogType::error};
  }
  return {"\x1b[0m", "", platform::UnifiedLogType::info};
}

LogMessage constant(std::string message) {
  return [message = std::move(message)] { return message; };
}

}  // namespace

CustomLogger::CustomLogger(std::string subsystem, std::string category, bool printDebugToStdout)
    : subsystem_(std::move(subsystem)),
      category_(std::move(category)),
      printDebugToStdout_(printDebugToStdout) {}

CustomLogger::CustomLogger(std::string category)
    : CustomLogger(withDefaultSubsystem(std::move(category), kFallbackSubsystem)) {}

CustomLogger CustomLogger::withDefaultSubsystem(std::string category,
                                                std::string_view defaultSubsystem) {
  return CustomLogger(Bundle::main().identifier.value_or(std::string(defaultSubsystem)),
                      std::move(category));
}

void CustomLogger::log(const LogMessage& message, LogLevel level) const {
  emit(message, level, {});
}

void CustomLogger::info(std::string message, std::span<const platform::LogField> fields) const {
  emit(constant(std::move(message)), LogLevel::info, fields);
}

void CustomLogger::emit(const LogMessage& message, LogLevel level,
                        std::span<const platform::LogField> fields) const {
  const LogSinks& sinks = LogSinks::current();
  const LevelStyle style = styleOf(level);

  const bool toStandardOutput = level != LogLevel::debug || printDebugToStdout_;
  const bool toUnifiedLog = sinks.unifiedLog && sinks.unifiedLog->isEnabled(style.unifiedType);
  const bool kept = level == LogLevel::error && sinks.recentErrors;
  if (!toStandardOutput && !toUnifiedLog && !kept) return;
  // One call, one line, in every sink; only our own colour codes reach a terminal.
  const std::string text = escapedControls(message());
  const TimePoint now = sinks.clock ? sinks.clock->now() : std::chrono::system_clock::now();
  if (kept) sinks.recentErrors->add(now, text);

  if (toStandardOutput) {
    std::string line;
    line.append(style.colour).append(VelmoFormatters::iso8601(now)).append("  ");
    if (!style.marker.empty()) line.append(style.marker).append(" ");
    line.append(text).append(kReset).append("\n");
    // One call per line, so lines from different threads never interleave.
    std::fwrite(line.data(), 1, line.size(), sinks.standardOutput ? sinks.standardOutput : stdout);
  }

  if (!toUnifiedLog) return;
  if (fields.empty()) {
    sinks.unifiedLog->write(style.unifiedType, subsystem_, category_, text);
    return;
  }
  // Values are inert too: one field, one line.
  std::vector<std::string> values;
  for (const auto& field : fields) values.push_back(escapedControls(field.value));
  std::vector<platform::LogField> escaped;
  for (std::size_t i = 0; i < fields.size(); ++i) escaped.push_back({fields[i].name, values[i]});
  sinks.unifiedLog->writeWithFields(style.unifiedType, subsystem_, category_, text, escaped);
}

void CustomLogger::debug(std::string message) const {
  log(constant(std::move(message)), LogLevel::debug);
}
void CustomLogger::info(std::string message) const {
  log(constant(std::move(message)), LogLevel::info);
}
void CustomLogger::warning(std::string message) const {
  log(constant(std::move(message)), LogLevel::warning);
}
void CustomLogger::error(std::string message) const {
  log(constant(std::move(message)), LogLevel::error);
}

}  // namespace velmo::core
