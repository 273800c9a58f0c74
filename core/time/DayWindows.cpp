#include "core/time/DayWindows.h"

#include <algorithm>
#include <cstdint>
#include <iterator>
#include <utility>

namespace velmo::core {
namespace {

using MinuteRange = DayWindows::MinuteRange;
using MinuteRanges = DayWindows::MinuteRanges;
using Verdict = VelmoWindowPolicy::Verdict;

constexpr int kLastMinute = DayWindows::kMinutesPerDay - 1;

// The minutes of the day a window holds on a day it applies to; the wall
// clock gives only minutes 0 to 1439, so its bounds are clipped to those.
void appendMinutes(const VelmoTimeWindow& window, MinuteRanges& ranges) {
  const auto first = window.start.minuteOfDay();
  const auto last = window.end.minuteOfDay();
  if (!first || !last) return;
  const auto add = [&](std::int64_t from, std::int64_t to) {
    from = std::max<std::int64_t>(from, 0);
    to = std::min<std::int64_t>(to, kLastMinute);
    if (from <= to) ranges.push_back({static_cast<int>(from), static_cast<int>(to)});
  };
  if (*last < *first) {
    add(*first, kLastMinute);
    add(0, *last);
  } else {
    add(*first, *last);
  }
}

MinuteRanges merged(MinuteRanges ranges) {
  std::sort(ranges.begin(), ranges.end(),
            [](const MinuteRange& a, const MinuteRange& b) { return a.first < b.first; });
  MinuteRanges result;
  for (const auto& range : ranges) {
    if (!result.empty() && range.first <= result.back().last + 1) {
      result.back().last = std::max(result.back().last, range.last);
    } else {
      result.push_back(range);
    }
  }
  return result;
}

MinuteRanges subtract(const MinuteRanges& from, const MinuteRanges& removed) {
  MinuteRanges result;
  for (auto range : from) {
    for (const auto& cut : removed) {
      if (cut.last < range.first || cut.first > range.last) continue;
      if (cut.first > range.first) result.push_back({range.first, cut.first - 1});
      range.first = cut.last + 1;
      if (range.first > range.last) break;
    }
    if (range.first <= range.last) result.push_back(range);
  }
  return result;
}

bool cacheable(int weekday, int weekOfMonth) {
  return weekday >= 1 && weekday <= 7 && weekOfMonth >= 0 && weekOfMonth <= 6;
}

// Gives `verdict` to every minute of `window`; with `onlyOutside`, only to
// minutes no window has claimed yet.
void paint(std::vector<Verdict>& day, const VelmoTimeWindow& window, Verdict verdict,
           bool onlyOutside) {
  MinuteRanges ranges;
  appendMinutes(window, ranges);
  for (const auto& range : ranges) {
    for (int minute = range.first; minute <= range.last; ++minute) {
      auto& cell = day[static_cast<std::size_t>(minute)];
      if (!onlyOutside || cell.kind == Verdict::Kind::outside) cell = verdict;
    }
  }
}

}  // namespace

// Painted from the weakest claim up, each list from its last window to its
// first, so that the lowest index is painted last and wins.
const std::vector<Verdict>& DayWindows::verdicts(int weekday, int weekOfMonth) {
  using Kind = Verdict::Kind;
  const bool keep = cacheable(weekday, weekOfMonth);
  auto& slot = keep ? verdictCache_[(weekday - 1) * 7 + weekOfMonth] : uncachedVerdicts_;
  if (slot && keep) return *slot;
  std::vector<Verdict> day(kMinutesPerDay, {allow_.empty() ? Kind::allowed : Kind::outside, -1});
  for (int index = std::ssize(allow_) - 1; index >= 0; --index) {
    VelmoTimeWindow everyWeek = allow_[static_cast<std::size_t>(index)];
    everyWeek.weeksOfMonth.reset();
    if (everyWeek.appliesOn(weekday, weekOfMonth))
      paint(day, everyWeek, {Kind::otherWeek, index}, true);
  }
  for (const auto& window : allow_) {
    if (window.appliesOn(weekday, weekOfMonth)) paint(day, window, {Kind::allowed, -1}, false);
  }
  for (int index = std::ssize(deny_) - 1; index >= 0; --index) {
    const auto& window = deny_[static_cast<std::size_t>(index)];
    if (window.appliesOn(weekday, weekOfMonth)) paint(day, window, {Kind::blackout, index}, false);
  }
  slot = std::move(day);
  return *slot;
}

std::optional<int> DayWindows::firstAllowed(int weekday, int weekOfMonth, int first, int last) {
  for (const auto& range : allowedMinutes(weekday, weekOfMonth)) {
    if (range.last < first) continue;
    if (range.first > last) break;
    return std::max(range.first, first);
  }
  return std::nullopt;
}

const DayWindows::MinuteRanges& DayWindows::allowedMinutes(int weekday, int weekOfMonth) {
  const bool keep = cacheable(weekday, weekOfMonth);
  auto& slot = keep ? allowedCache_[(weekday - 1) * 7 + weekOfMonth] : uncached_;
  if (!slot || !keep) slot = computeAllowedMinutes(weekday, weekOfMonth);
  return *slot;
}

DayWindows::MinuteRanges DayWindows::computeAllowedMinutes(int weekday, int weekOfMonth) const {
  MinuteRanges allowed;
  if (allow_.empty()) allowed.push_back({0, kLastMinute});
  for (const auto& window : allow_) {
    if (window.appliesOn(weekday, weekOfMonth)) appendMinutes(window, allowed);
  }
  MinuteRanges denied;
  for (const auto& window : deny_) {
    if (window.appliesOn(weekday, weekOfMonth)) appendMinutes(window, denied);
  }
  return subtract(merged(std::move(allowed)), merged(std::move(denied)));
}

}  // namespace velmo::core
