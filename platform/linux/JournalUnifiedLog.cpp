#include "platform/linux/JournalUnifiedLog.h"

#include <systemd/sd-journal.h>

#include <cstdlib>
#include <string>

namespace velmo::platform::linux {
namespace {

int priorityOf(UnifiedLogType type) {
  switch (type) {
    case UnifiedLogType::debug:
      return 7;
    case UnifiedLogType::info:
      return 6;
    case UnifiedLogType::error:
      return 3;
  }
  return 6;
}

}  // namespace

JournalUnifiedLog::JournalUnifiedLog() {
  const char* flag = std::getenv("VELMO_LOG_DEBUG");
  debugEnabled_ = flag && std::string(flag) == "1";
}

bool JournalUnifiedLog::isEnabled(UnifiedLogType type) const {
  return type != UnifiedLogType::debug || debugEnabled_;
}

void JournalUnifiedLog::write(UnifiedLogType type, std::string_view subsystem,
                              std::string_view category, std::string_view message) {
  const std::string text(message);
  const std::string subsystemText(subsystem);
  const std::string categoryText(category);
  sd_journal_send("MESSAGE=%s", text.c_str(), "PRIORITY=%d", priorityOf(type),
                  "SYSLOG_IDENTIFIER=velmo-agent", "VELMO_SUBSYSTEM=%s", subsystemText.c_str(),
                  "VELMO_CATEGORY=%s", categoryText.c_str(), nullptr);
}

}  // namespace velmo::platform::linux
