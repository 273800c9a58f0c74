#pragma once

#include <cstdint>
#include <deque>
#include <string>

#include <asio/any_io_executor.hpp>

#include "core/logging/CustomLogger.h"
#include "core/logging/LogBudget.h"
#include "platform/Clock.h"
#include "platform/DistributedNotificationCenter.h"

namespace velmo::core {

// The lines that posts cause. Any account can post as fast as it likes, so
// each account gets, per notification name, at most ten of each kind of line
// a minute, then one "Suppressed N ... in the last minute."; root's lines
// never share a budget with another account's, and root's debug lines are
// not counted at all. One post gets one error line, however many observers
// failed to decode it. Shared by every observer of the process; main
// executor only.
class PostLog {
 public:
  PostLog(platform::Clock& clock, asio::any_io_executor executor);
  PostLog(const PostLog&) = delete;
  PostLog& operator=(const PostLog&) = delete;

  // Writes `line` as an error with `logger`: the post could not be decoded.
  void malformed(const CustomLogger& logger, const platform::DistributedNotification& post,
                 const std::string& line);
  // Writes `line` as a debug line with `logger`: what the post did.
  void debug(const CustomLogger& logger, const platform::DistributedNotification& post,
             const std::string& line);

 private:
  // Observers of one post report it within a few deliveries of each other;
  // more than this many posts apart is another post.
  static constexpr std::size_t kRecentPosts = 64;

  CustomLogger logger_{"Notifications"};
  LogBudget budget_;
  std::deque<std::uint64_t> recentPosts_;
};

}  // namespace velmo::core
