#pragma once

#include <array>
#include <optional>
#include <vector>

#include "core/time/VelmoTimeWindow.h"
#include "core/time/VelmoWindowPolicy.h"

namespace velmo::core {

// What the windows make of each minute of a day, for each kind of day: its
// weekday (Sunday 1) and its week of the month. Kinds of day are remembered
// once worked out. Serves one call of a policy, on one thread; the window
// lists must outlive it.
class DayWindows {
 public:
  static constexpr int kMinutesPerDay = 1440;

  // Inclusive minutes of the day, 0 to 1439.
  struct MinuteRange {
    int first = 0;
    int last = 0;
  };
  // Sorted, disjoint and not touching.
  using MinuteRanges = std::vector<MinuteRange>;

  DayWindows(const std::vector<VelmoTimeWindow>& allow, const std::vector<VelmoTimeWindow>& deny)
      : allow_(allow), deny_(deny) {}

  // The verdict of each minute: the deny window with the lowest index wins,
  // then any allow window.
  const std::vector<VelmoWindowPolicy::Verdict>& verdicts(int weekday, int weekOfMonth);
  // The first allowed minute from `first` to `last`, if any.
  std::optional<int> firstAllowed(int weekday, int weekOfMonth, int first, int last);

 private:
  // The allowed minutes on a day of this weekday and week of the month.
  const MinuteRanges& allowedMinutes(int weekday, int weekOfMonth);
  MinuteRanges computeAllowedMinutes(int weekday, int weekOfMonth) const;

  const std::vector<VelmoTimeWindow>& allow_;
  const std::vector<VelmoTimeWindow>& deny_;
  // By (weekday - 1) * 7 + week of the month; other days aren't kept.
  std::array<std::optional<MinuteRanges>, 49> allowedCache_{};
  std::optional<MinuteRanges> uncached_;
  std::array<std::optional<std::vector<VelmoWindowPolicy::Verdict>>, 49> verdictCache_{};
  std::optional<std::vector<VelmoWindowPolicy::Verdict>> uncachedVerdicts_;
};

}  // namespace velmo::core
