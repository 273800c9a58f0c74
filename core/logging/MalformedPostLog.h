#pragma once

#include <cstdint>
#include <deque>
#include <string>
#include <string_view>

#include <asio/any_io_executor.hpp>

#include "core/logging/CustomLogger.h"
#include "core/logging/LogBudget.h"
#include "platform/Clock.h"

namespace velmo::core {

// The error lines about posts that fail to decode. Any account can post them
// as fast as it likes, so each notification name gets at most ten lines a
// minute, then one "Suppressed N malformed <name> notifications in the last
// minute."; and one post gets one line, however many observers failed to
// decode it. Shared by every observer of the process; main executor only.
class MalformedPostLog {
 public:
  MalformedPostLog(platform::Clock& clock, asio::any_io_executor executor);
  MalformedPostLog(const MalformedPostLog&) = delete;
  MalformedPostLog& operator=(const MalformedPostLog&) = delete;

  // Writes `line` as an error with `logger`, within the budget of `name`.
  // `post` is the centre's number of the post, 0 where there is none.
  void error(const CustomLogger& logger, std::string_view name, std::uint64_t post,
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
