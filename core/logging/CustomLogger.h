#pragma once

#include <span>
#include <string>
#include <string_view>

#include "core/logging/Logging.h"
#include "platform/UnifiedLog.h"

namespace velmo::core {

// Used wherever the program has no bundle identifier of its own.
inline constexpr std::string_view kFallbackSubsystem = "com.marvenith.velmo";

// Writes each line to standard output (coloured, stamped, one fputs) and to
// the unified log. Holds no mutable state: copies may be used on any thread.
class CustomLogger final : public Logging {
 public:
  CustomLogger(std::string subsystem, std::string category, bool printDebugToStdout = false);
  // The subsystem is the main bundle's identifier, or the fallback subsystem.
  explicit CustomLogger(std::string category);
  // The subsystem is the main bundle's identifier, or `defaultSubsystem`.
  static CustomLogger withDefaultSubsystem(std::string category, std::string_view defaultSubsystem);

  void log(const LogMessage& message, LogLevel level) const override;

  void debug(const LogMessage& message) const { log(message, LogLevel::debug); }
  void info(const LogMessage& message) const { log(message, LogLevel::info); }
  void warning(const LogMessage& message) const { log(message, LogLevel::warning); }
  void error(const LogMessage& message) const { log(message, LogLevel::error); }
  // Eager forms for messages that cost nothing to build.
  void debug(std::string message) const;
  void info(std::string message) const;
  void warning(std::string message) const;
  void error(std::string message) const;
  // At info, with fields of the line's own for the unified log, such as
  // VELMO_POLICY_KEY; standard output shows the message alone.
  void info(std::string message, std::span<const platform::LogField> fields) const;

  const std::string& subsystem() const { return subsystem_; }
  const std::string& category() const { return category_; }

 private:
  void emit(const LogMessage& message, LogLevel level,
            std::span<const platform::LogField> fields) const;

  std::string subsystem_;
  std::string category_;
  bool printDebugToStdout_;
};

}  // namespace velmo::core
