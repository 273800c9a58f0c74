#pragma once

#include <optional>
#include <string>
#include <vector>

#include <nlohmann/json.hpp>

#include "agent/console/ConsoleText.h"
#include "core/time/VelmoWindowPolicy.h"

namespace velmo::agent::console {

// Seven days of half hours from the local midnight that starts the day of a
// moment, each cell allowed, partly allowed, blocked or in a blackout.
class WeekPicture {
 public:
  enum class Cell { allowed, partly, blocked, blackout };
  static constexpr int kDays = 7;
  static constexpr int kCellsPerDay = 48;

  struct Day {
    platform::TimePoint midnight;
    std::vector<Cell> cells;
  };

  // No policy: every cell allowed.
  WeekPicture(const std::optional<core::VelmoWindowPolicy>& policy, platform::TimePoint from,
              const std::string& timeZoneId);

  const std::vector<Day>& days() const { return days_; }
  // The picture with an hour ruler and a legend.
  std::string render(const ConsoleText& text) const;
  // Each day as a string of one letter per cell: A allowed, p partly, . blocked, B blackout.
  nlohmann::json json() const;

 private:
  std::vector<Day> days_;
  std::string timeZoneId_;
};

}  // namespace velmo::agent::console
