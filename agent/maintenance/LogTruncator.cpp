#include "agent/maintenance/LogTruncator.h"

#include <string>
#include <string_view>
#include <variant>

namespace velmo::agent::maintenance {

LogTruncator::LogTruncator(platform::FileManager& files, std::filesystem::path logFile,
                           core::CustomLogger logger)
    : files_(files), logFile_(std::move(logFile)), logger_(std::move(logger)) {}

void LogTruncator::truncateLogFile(std::uint64_t maxMegabytes) const {
  logger_.debug("Truncating the log file to maintain a maximum size of " +
                std::to_string(maxMegabytes) + "MB.");
  const std::uint64_t maxBytes = maxMegabytes * kBytesPerMegabyte;
  // The cut lies in the last maxBytes, and nothing before them is kept.
  const auto read = files_.readFileTail(logFile_, logFile_.parent_path(), maxBytes);
  if (const auto* error = read.error()) {
    logger_.error("Error reading log file: " + error->description + ".");
    logger_.error("Failed to read log file.");
    return;
  }
  const auto& tail = read.value();
  if (tail.size <= maxBytes) {
    logger_.debug("Log file size (" + std::to_string(tail.size) +
                  " bytes) is already within the limit.");
    return;
  }
  // The tail starts at `size - maxBytes`, where the search for the cut starts.
  const std::string_view bytes = tail.bytes.view();
  const auto newline = bytes.find('\n');
  if (newline == std::string_view::npos) {
    logger_.error("Failed to find a suitable truncation position.");
    return;
  }
  const std::string_view kept = bytes.substr(newline + 1);
  if (const auto result = files_.writeFile(logFile_, kept); const auto* error = result.error()) {
    logger_.error("Error writing log file: " + error->description + ".");
    logger_.error("An error occurred truncating the log file.");
    return;
  }
  logger_.info("Truncated " + std::to_string(tail.size - kept.size()) +
               " bytes from the log file.");
}

}  // namespace velmo::agent::maintenance
