#include "backends/linux/FileUnifiedLog.h"

#include <fcntl.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstring>
#include <string>

#include "core/time/VelmoFormatters.h"

namespace velmo::platform::linux {
namespace {

std::string_view nameOf(UnifiedLogType type) {
  switch (type) {
    case UnifiedLogType::debug:
      return "debug";
    case UnifiedLogType::info:
      return "info";
    case UnifiedLogType::error:
      return "error";
  }
  return "info";
}

}  // namespace

FileUnifiedLog::FileUnifiedLog(const std::filesystem::path& path, const Clock& clock)
    : clock_(clock),
      descriptor_(::open(path.c_str(), O_WRONLY | O_APPEND | O_CREAT | O_CLOEXEC, 0644)) {
  if (descriptor_ < 0) {
    // The logger has no failure path; say it once where an operator will see it.
    std::fprintf(stderr, "velmo-agent: cannot open unified log file %s: %s\n", path.c_str(),
                 std::strerror(errno));
  }
}

FileUnifiedLog::~FileUnifiedLog() {
  if (descriptor_ >= 0) ::close(descriptor_);
}

void FileUnifiedLog::write(UnifiedLogType type, std::string_view subsystem,
                           std::string_view category, std::string_view message) {
  writeWithFields(type, subsystem, category, message, {});
}

void FileUnifiedLog::writeWithFields(UnifiedLogType type, std::string_view subsystem,
                                     std::string_view category, std::string_view message,
                                     std::span<const LogField> fields) {
  if (descriptor_ < 0) return;
  std::string line = core::VelmoFormatters::iso8601WithMilliseconds(clock_.now());
  line.append(" ").append(nameOf(type)).append(" [").append(subsystem).append(":");
  line.append(category).append("] ").append(message);
  for (const auto& field : fields)
    line.append("\t").append(field.name).append("=").append(field.value);
  line.append("\n");
  // O_APPEND makes each write land whole at the end, even with other writers.
  [[maybe_unused]] ssize_t written = ::write(descriptor_, line.data(), line.size());
}

}  // namespace velmo::platform::linux
