#include "core/logging/RecentLines.h"

namespace velmo::core {
namespace {

// At most `length` bytes, cut before a character, never inside one.
std::string_view cut(std::string_view text, std::size_t length) {
  if (text.size() <= length) return text;
  while (length > 0 && (static_cast<unsigned char>(text[length]) & 0xC0) == 0x80) --length;
  return text.substr(0, length);
}

}  // namespace

void RecentLines::add(TimePoint date, std::string_view text) {
  std::string kept(cut(text, kMaxLength));
  const std::scoped_lock lock(mutex_);
  if (lines_.size() == kCapacity) lines_.pop_front();
  lines_.push_back({date, std::move(kept)});
}

std::vector<RecentLines::Line> RecentLines::lines() const {
  const std::scoped_lock lock(mutex_);
  return {lines_.begin(), lines_.end()};
}

}  // namespace velmo::core
