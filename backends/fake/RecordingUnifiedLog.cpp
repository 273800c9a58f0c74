#include "backends/fake/RecordingUnifiedLog.h"

namespace velmo::platform::fake {

RecordingUnifiedLog::RecordingUnifiedLog(std::set<UnifiedLogType> enabled)
    : enabled_(std::move(enabled)) {}

bool RecordingUnifiedLog::isEnabled(UnifiedLogType type) const { return enabled_.count(type) > 0; }

void RecordingUnifiedLog::write(UnifiedLogType type, std::string_view subsystem,
                                std::string_view category, std::string_view message) {
  std::lock_guard lock(mutex_);
  entries_.push_back({type, std::string(subsystem), std::string(category), std::string(message)});
}

void RecordingUnifiedLog::writeWithFields(UnifiedLogType type, std::string_view subsystem,
                                          std::string_view category, std::string_view message,
                                          std::span<const LogField> fields) {
  Entry entry{type, std::string(subsystem), std::string(category), std::string(message)};
  for (const auto& field : fields) entry.fields.emplace_back(field.name, field.value);
  std::lock_guard lock(mutex_);
  entries_.push_back(std::move(entry));
}

std::vector<RecordingUnifiedLog::Entry> RecordingUnifiedLog::entries() const {
  std::lock_guard lock(mutex_);
  return entries_;
}

std::vector<std::string> RecordingUnifiedLog::messages(UnifiedLogType type) const {
  std::lock_guard lock(mutex_);
  std::vector<std::string> result;
  for (const auto& entry : entries_) {
    if (entry.type == type) result.push_back(entry.message);
  }
  return result;
}

void RecordingUnifiedLog::clear() {
  std::lock_guard lock(mutex_);
  entries_.clear();
}

}  // namespace velmo::platform::fake
