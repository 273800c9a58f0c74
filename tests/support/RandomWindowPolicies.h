#pragma once

// Random window policies, zones with clock changes and moments near them, for
// tests that hold two ways of planning to each other.
#include <cstdint>
#include <iterator>
#include <limits>
#include <random>
#include <vector>

#include "core/time/VelmoTimeWindow.h"
#include "core/values/Time.h"

namespace velmo::testing {

using core::TimeOfDay;
using core::TimePoint;
using core::VelmoTimeWindow;

struct Zone {
  const char* id;
  // Moments next to the zone's clock changes, in seconds since 1970 UTC.
  std::vector<std::int64_t> changes;
};

inline const Zone kZones[] = {
    {"America/New_York", {1772953200, 1793512800, -2717650800, 1173596400}},
    {"Europe/Berlin", {1774746000, 1792890000, -714610800}},
    {"America/Toronto", {-1601753400, 1772953200}},
    {"Australia/Lord_Howe", {1775314800, 1791041400}},
    {"America/Sao_Paulo", {1541300400, 1550368800}},
    {"Asia/Beirut", {1743285600, 1761426000}},
    {"America/Havana", {1741496400, 1762059600}},
    {"Pacific/Apia", {1325239200}},
    {"Africa/Monrovia", {63593070}},
    {"Asia/Kathmandu", {504901800}},
    {"America/St_Johns", {1772947800, 1793507400}},
    {"UTC", {1773100800}},
};

// 1880 to 2100.
constexpr std::int64_t kEarliestRandom = -2840140800;
constexpr std::int64_t kLatestRandom = 4102444800;

class Generator {
 public:
  explicit Generator(std::uint64_t seed) : random_(seed) {}

  VelmoTimeWindow window() {
    VelmoTimeWindow result;
    // Some windows have no days and never match.
    const double density = chance(0.05) ? 0.0 : 0.3 * static_cast<double>(between(1, 3));
    for (const auto day : core::kAllWeekdays) {
      if (chance(density)) result.days.insert(day);
    }
    if (chance(0.3)) {
      // Weeks 0 and 7 never occur; an empty set means every week.
      result.weeksOfMonth.emplace();
      for (std::int64_t week = 0; week <= 7; ++week) {
        if (chance(0.3)) result.weeksOfMonth->insert(week);
      }
    }
    result.start = time();
    // A short window, sometimes over midnight, or one between two random times.
    const auto from = result.start.minuteOfDay().value_or(0) + between(0, 90);
    result.end = chance(0.3) ? TimeOfDay{from / 60 % 24, from % 60} : time();
    if (chance(0.2)) result.type = VelmoTimeWindow::WindowType::deny;
    return result;
  }

  std::vector<VelmoTimeWindow> windows(int most) {
    std::vector<VelmoTimeWindow> result(static_cast<std::size_t>(between(0, most)));
    for (auto& each : result) each = window();
    return result;
  }

  const Zone& zone() { return kZones[between(0, std::ssize(kZones) - 1)]; }

  // Mostly whole minutes near a clock change, where boundaries bite; some
  // anywhere from 1880 to 2100, some with seconds and fractions.
  TimePoint moment(const Zone& zone) {
    std::int64_t seconds = between(kEarliestRandom, kLatestRandom);
    if (chance(0.8)) {
      seconds = zone.changes[between(0, std::ssize(zone.changes) - 1)] / 60 * 60 +
                between(-2880, 1440) * 60;
    }
    auto moment = TimePoint(std::chrono::seconds(seconds));
    if (chance(0.3)) moment += std::chrono::nanoseconds(between(0, 59'999'999'999));
    return moment;
  }

  // Longer searches cost the scan dearly and add little: days are walked alike.
  int searchDays() { return static_cast<int>(chance(0.005) ? between(5, 21) : between(1, 2)); }

 private:
  TimeOfDay time() {
    if (chance(0.85)) return {between(0, 23), between(0, 59)};
    if (chance(0.6)) return {between(-2, 26), between(-30, 90)};
    if (chance(0.5)) return {24, 0};
    return {std::numeric_limits<std::int64_t>::max() - between(0, 2), between(0, 59)};
  }

  bool chance(double probability) { return std::bernoulli_distribution(probability)(random_); }
  std::int64_t between(std::int64_t low, std::int64_t high) {
    return std::uniform_int_distribution<std::int64_t>(low, high)(random_);
  }

  std::mt19937_64 random_;
};

}  // namespace velmo::testing
