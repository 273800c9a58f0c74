#include "backends/linux/JournalUnifiedLog.h"

#include <systemd/sd-journal.h>

#include <cstdlib>
#include <string>
#include <vector>

#include <sys/uio.h>

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

void JournalUnifiedLog::writeWithFields(UnifiedLogType type, std::string_view subsystem,
                                        std::string_view category, std::string_view message,
                                        std::span<const LogField> fields) {
  std::vector<std::string> entries{
      "MESSAGE=" + std::string(message), "PRIORITY=" + std::to_string(priorityOf(type)),
      "SYSLOG_IDENTIFIER=velmo-agent", "VELMO_SUBSYSTEM=" + std::string(subsystem),
      "VELMO_CATEGORY=" + std::string(category)};
  for (const auto& field : fields) {
    entries.push_back(std::string(field.name) + "=" + std::string(field.value));
  }
  std::vector<iovec> vectors;
  for (auto& entry : entries) vectors.push_back({entry.data(), entry.size()});
  sd_journal_sendv(vectors.data(), static_cast<int>(vectors.size()));
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
