#pragma once

#include <cstdint>
#include <filesystem>

#include "core/logging/CustomLogger.h"
#include "platform/FileManager.h"

namespace velmo::agent::maintenance {

// Keeps the log file bounded by dropping its oldest lines. The file is
// treated as bytes, and only its last maxBytes are read, so a huge log costs
// no more memory than the tail that is kept, and a log cut meanwhile by
// another program is a failed read. The log's folder is the fixed folder.
class LogTruncator {
 public:
  static constexpr std::uint64_t kBytesPerMegabyte = 1'048'576;

  LogTruncator(platform::FileManager& files, std::filesystem::path logFile,
               core::CustomLogger logger);

  // Cuts the file after the first newline at or past `size - maxBytes`, so it
  // starts with a whole line and ends just under the limit. A file within the
  // limit, or without such a newline, is left as it is.
  void truncateLogFile(std::uint64_t maxMegabytes) const;

 private:
  platform::FileManager& files_;
  std::filesystem::path logFile_;
  core::CustomLogger logger_;
};

}  // namespace velmo::agent::maintenance
