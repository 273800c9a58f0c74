#pragma once

#include <filesystem>

#include "platform/Clock.h"
#include "platform/UnifiedLog.h"

namespace velmo::platform::linux {

// Stands in for the journal where VELMO_UNIFIED_LOG names a file: every
// level enabled, one append-mode write per line:
// "<ISO 8601 UTC with ms> <type> [<subsystem>:<category>] <message>".
class FileUnifiedLog final : public UnifiedLog {
 public:
  FileUnifiedLog(const std::filesystem::path& path, const Clock& clock);
  ~FileUnifiedLog() override;
  FileUnifiedLog(const FileUnifiedLog&) = delete;
  FileUnifiedLog& operator=(const FileUnifiedLog&) = delete;

  bool isEnabled(UnifiedLogType) const override { return true; }
  void write(UnifiedLogType type, std::string_view subsystem, std::string_view category,
             std::string_view message) override;
  // The fields follow the message, each as a tab and NAME=value.
  void writeWithFields(UnifiedLogType type, std::string_view subsystem, std::string_view category,
                       std::string_view message, std::span<const LogField> fields) override;

 private:
  const Clock& clock_;
  int descriptor_;
};

}  // namespace velmo::platform::linux
