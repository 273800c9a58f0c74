#pragma once

#include "core/logging/Logging.h"

namespace velmo::core {

// Swallows every line without building it.
class NullLogger final : public Logging {
 public:
  void log(const LogMessage&, LogLevel) const override {}
};

}  // namespace velmo::core
