#include "core/logging/PostLog.h"

#include <algorithm>

namespace velmo::core {
namespace {

std::string account(const platform::DistributedNotification& post) {
  if (post.senderUid == platform::DistributedNotification::kUnknownSender) {
    return "unknown accounts";
  }
  return "uid " + std::to_string(post.senderUid);
}

}  // namespace

PostLog::PostLog(platform::Clock& clock, asio::any_io_executor executor)
    : budget_(logger_, clock, std::move(executor)) {}

void PostLog::malformed(const CustomLogger& logger, const platform::DistributedNotification& post,
                        const std::string& line) {
  if (post.postNumber != 0) {
    if (std::find(recentPosts_.begin(), recentPosts_.end(), post.postNumber) !=
        recentPosts_.end()) {
      return;
    }
    recentPosts_.push_back(post.postNumber);
    if (recentPosts_.size() > kRecentPosts) recentPosts_.pop_front();
  }
  const std::string what = "malformed " + post.name + " notifications from " + account(post);
  if (budget_.admit(what, what)) logger.error(line);
}

void PostLog::debug(const CustomLogger& logger, const platform::DistributedNotification& post,
                    const std::string& line) {
  if (post.isFromRoot()) {
    logger.debug(line);
    return;
  }
  const std::string what = "debug lines on " + post.name + " notifications from " + account(post);
  if (budget_.admit(what, what)) logger.debug(line);
}

}  // namespace velmo::core
