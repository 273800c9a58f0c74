#include "core/logging/MalformedPostLog.h"

#include <algorithm>

namespace velmo::core {

MalformedPostLog::MalformedPostLog(platform::Clock& clock, asio::any_io_executor executor)
    : budget_(logger_, clock, std::move(executor)) {}

void MalformedPostLog::error(const CustomLogger& logger, std::string_view name, std::uint64_t post,
                             const std::string& line) {
  if (post != 0) {
    if (std::find(recentPosts_.begin(), recentPosts_.end(), post) != recentPosts_.end()) return;
    recentPosts_.push_back(post);
    if (recentPosts_.size() > kRecentPosts) recentPosts_.pop_front();
  }
  const std::string kind(name);
  if (budget_.admit(kind, "malformed " + kind + " notifications")) logger.error(line);
}

}  // namespace velmo::core
