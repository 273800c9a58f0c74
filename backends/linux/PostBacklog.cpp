#include "backends/linux/PostBacklog.h"

#include <algorithm>

namespace velmo::platform::linux {

std::optional<std::size_t> PostBacklog::admit(std::uint32_t uid, std::size_t bytes, bool bounded) {
  const std::lock_guard lock(mutex_);
  Backlog& backlog = accounts_[uid];
  const bool root = uid == 0;
  if (bounded && (backlog.posts >= (root ? limits_.rootPosts : limits_.posts) ||
                  backlog.bytes + bytes > (root ? limits_.rootBytes : limits_.bytes))) {
    return backlog.posts;
  }
  ++backlog.posts;
  backlog.bytes += bytes;
  return std::nullopt;
}

void PostBacklog::release(std::uint32_t uid, std::size_t bytes) {
  const std::lock_guard lock(mutex_);
  const auto found = accounts_.find(uid);
  if (found == accounts_.end()) return;
  found->second.bytes -= std::min(bytes, found->second.bytes);
  if (--found->second.posts == 0) accounts_.erase(found);
}

}  // namespace velmo::platform::linux
