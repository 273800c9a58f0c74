#pragma once

#include <span>
#include <string_view>

namespace velmo::platform {

// The three message types of the system log that the agent uses.
enum class UnifiedLogType { debug, info, error };

// A field of a log entry of the caller's own, such as VELMO_POLICY_KEY, that
// the journal indexes; names are upper case, as the journal wants them.
struct LogField {
  std::string_view name;
  std::string_view value;
};

// The system's unified log: the journal on Linux, a file for tests.
// Implementations accept calls from any thread.
class UnifiedLog {
 public:
  virtual ~UnifiedLog() = default;
  virtual bool isEnabled(UnifiedLogType type) const = 0;
  virtual void write(UnifiedLogType type, std::string_view subsystem, std::string_view category,
                     std::string_view message) = 0;
  // With fields of the caller's own; a log that can't keep them writes the message alone.
  virtual void writeWithFields(UnifiedLogType type, std::string_view subsystem,
                               std::string_view category, std::string_view message,
                               std::span<const LogField> fields) {
    (void)fields;
    write(type, subsystem, category, message);
  }
};

}  // namespace velmo::platform
