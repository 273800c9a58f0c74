#pragma once

#include <string_view>

namespace velmo::platform {

// The three message types of the system log that the agent uses.
enum class UnifiedLogType { debug, info, error };

// The system's unified log: the journal on Linux, a file for tests.
// Implementations accept calls from any thread.
class UnifiedLog {
 public:
  virtual ~UnifiedLog() = default;
  virtual bool isEnabled(UnifiedLogType type) const = 0;
  virtual void write(UnifiedLogType type, std::string_view subsystem, std::string_view category,
                     std::string_view message) = 0;
};

}  // namespace velmo::platform
