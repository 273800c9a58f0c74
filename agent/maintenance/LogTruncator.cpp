#include "agent/maintenance/LogTruncator.h"

#include <string>
#include <variant>

namespace velmo::agent::maintenance {

LogTruncator::LogTruncator(platform::FileManager& files, std::filesystem::path logFile,
                           core::CustomLogger logger)
    : files_(files), logFile_(std::move(logFile)), logger_(std::move(logger)) {}

void LogTruncator::truncateLogFile(std::uint64_t maxMegabytes) const {
  logger_.debug("Truncating the log file to maintain a maximum size of " +
                std::to_string(maxMegabytes) + "MB.");
  const std::uint64_t maxBytes = maxMegabytes * kBytesPerMegabyte;
  std::string kept;
  std::size_t size = 0;
  {
    auto read = files_.contentsMappedIfSafe(logFile_);
    if (const auto* error = std::get_if<platform::FileError>(&read)) {
      logger_.error("Error reading log file: " + error->description + ".");
      logger_.error("Failed to read log file.");
      return;
    }
    const auto bytes = std::get<platform::FileBytes>(std::move(read));
    const std::string_view data = bytes.view();
    size = data.size();
    if (size <= maxBytes) {
      logger_.debug("Log file size (" + std::to_string(size) +
                    " bytes) is already within the limit.");
      return;
    }
    const auto newline = data.find('\n', static_cast<std::size_t>(size - maxBytes));
    if (newline == std::string_view::npos) {
      logger_.error("Failed to find a suitable truncation position.");
      return;
    }
    kept.assign(data.substr(newline + 1));
    // The mapping is released here, before the write shortens the file under it.
  }
  if (const auto error = files_.writeFile(logFile_, kept)) {
    logger_.error("Error writing log file: " + error->description + ".");
    logger_.error("An error occurred truncating the log file.");
    return;
  }
  logger_.info("Truncated " + std::to_string(size - kept.size()) + " bytes from the log file.");
}

}  // namespace velmo::agent::maintenance
