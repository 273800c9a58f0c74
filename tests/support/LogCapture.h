#pragma once

#include <cstdio>
#include <string>
#include <vector>

#include "backends/fake/RecordingUnifiedLog.h"
#include "core/logging/LogSinks.h"

namespace velmo::testing {

// Routes every logger of the process to a temporary file (standard output)
// and a recording unified log, for the lifetime of the object.
class LogCapture {
 public:
  explicit LogCapture(const platform::Clock* clock = nullptr,
                      std::set<platform::UnifiedLogType> enabled =
                          {platform::UnifiedLogType::debug, platform::UnifiedLogType::info,
                           platform::UnifiedLogType::error})
      : file_(std::tmpfile()), unified_(std::move(enabled)), scope_({file_, &unified_, clock}) {}
  ~LogCapture() { std::fclose(file_); }
  LogCapture(const LogCapture&) = delete;
  LogCapture& operator=(const LogCapture&) = delete;

  std::string standardOutput() const {
    std::fflush(file_);
    std::string text;
    std::rewind(file_);
    char buffer[4096];
    std::size_t read;
    while ((read = std::fread(buffer, 1, sizeof buffer, file_)) > 0) text.append(buffer, read);
    return text;
  }

  platform::fake::RecordingUnifiedLog& unified() { return unified_; }
  std::vector<std::string> errors() const {
    return unified_.messages(platform::UnifiedLogType::error);
  }
  std::vector<std::string> debugs() const {
    return unified_.messages(platform::UnifiedLogType::debug);
  }

 private:
  std::FILE* file_;
  platform::fake::RecordingUnifiedLog unified_;
  core::ScopedLogSinks scope_;
};

}  // namespace velmo::testing
