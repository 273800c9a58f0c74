#pragma once

#include "platform/UnifiedLog.h"

namespace velmo::platform::linux {

// The systemd journal. Info and error are always enabled; debug only when
// VELMO_LOG_DEBUG=1 at construction.
class JournalUnifiedLog final : public UnifiedLog {
 public:
  JournalUnifiedLog();
  bool isEnabled(UnifiedLogType type) const override;
  void write(UnifiedLogType type, std::string_view subsystem, std::string_view category,
             std::string_view message) override;
  void writeWithFields(UnifiedLogType type, std::string_view subsystem, std::string_view category,
                       std::string_view message, std::span<const LogField> fields) override;

 private:
  bool debugEnabled_;
};

}  // namespace velmo::platform::linux
