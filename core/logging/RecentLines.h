#pragma once

#include <cstddef>
#include <deque>
#include <mutex>
#include <string>
#include <string_view>
#include <vector>

#include "core/values/Time.h"

namespace velmo::core {

// The last few lines of one kind (the error lines), for the inventory report:
// bounded in count and in each line's length, safe to use from any thread.
class RecentLines {
 public:
  struct Line {
    TimePoint date;
    std::string text;
  };

  static constexpr std::size_t kCapacity = 20;
  static constexpr std::size_t kMaxLength = 512;

  void add(TimePoint date, std::string_view text);
  // Oldest first.
  std::vector<Line> lines() const;

 private:
  mutable std::mutex mutex_;
  std::deque<Line> lines_;
};

}  // namespace velmo::core
