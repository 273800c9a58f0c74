#pragma once

#include <cstddef>
#include <cstdint>
#include <mutex>
#include <optional>
#include <unordered_map>

namespace velmo::platform::linux {

// Posts taken and not yet handled, counted per account, so that no account's
// flood crowds out another's; root has limits of its own. Safe from any thread.
class PostBacklog {
 public:
  struct Limits {
    std::size_t posts;
    std::size_t bytes;
    std::size_t rootPosts;
    std::size_t rootBytes;
  };

  explicit PostBacklog(Limits limits) : limits_(limits) {}

  // Counts the post in, unless its account's limit is reached (when
  // `bounded`); gives the account's count of waiting posts when it is.
  std::optional<std::size_t> admit(std::uint32_t uid, std::size_t bytes, bool bounded = true);
  void release(std::uint32_t uid, std::size_t bytes);

 private:
  struct Backlog {
    std::size_t posts = 0;
    std::size_t bytes = 0;
  };

  Limits limits_;
  std::mutex mutex_;
  std::unordered_map<std::uint32_t, Backlog> accounts_;
};

}  // namespace velmo::platform::linux
