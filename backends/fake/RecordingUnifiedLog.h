#pragma once

#include <mutex>
#include <set>
#include <string>
#include <vector>

#include "platform/UnifiedLog.h"

namespace velmo::platform::fake {

// Keeps every line written, for assertions; the enabled types are settable.
class RecordingUnifiedLog final : public UnifiedLog {
 public:
  struct Entry {
    UnifiedLogType type;
    std::string subsystem;
    std::string category;
    std::string message;
    std::vector<std::pair<std::string, std::string>> fields{};
  };

  explicit RecordingUnifiedLog(std::set<UnifiedLogType> enabled = {UnifiedLogType::debug,
                                                                   UnifiedLogType::info,
                                                                   UnifiedLogType::error});

  bool isEnabled(UnifiedLogType type) const override;
  void write(UnifiedLogType type, std::string_view subsystem, std::string_view category,
             std::string_view message) override;
  void writeWithFields(UnifiedLogType type, std::string_view subsystem, std::string_view category,
                       std::string_view message, std::span<const LogField> fields) override;

  std::vector<Entry> entries() const;
  std::vector<std::string> messages(UnifiedLogType type) const;
  void clear();

 private:
  std::set<UnifiedLogType> enabled_;
  mutable std::mutex mutex_;
  std::vector<Entry> entries_;
};

}  // namespace velmo::platform::fake
