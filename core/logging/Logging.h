#pragma once

#include <functional>
#include <string>

#include "core/logging/LogLevel.h"

namespace velmo::core {

// A message that is built only when a sink needs it; producers must be free
// of side effects, since each sink evaluates separately.
using LogMessage = std::function<std::string()>;

class Logging {
 public:
  virtual ~Logging() = default;
  virtual void log(const LogMessage& message, LogLevel level) const = 0;
};

}  // namespace velmo::core
