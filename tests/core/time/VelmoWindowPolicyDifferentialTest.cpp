// The fast search must give exactly what judging every candidate minute
// gives. Random policies, random moments, and zones whose clock changes are
// the hard part: 30-minute changes, skipped and repeated midnights, a gap
// around midnight, a skipped day, offsets with seconds.
#include <gtest/gtest.h>

#include <algorithm>
#include <cstdlib>
#include <limits>
#include <random>
#include <string>
#include <thread>
#include <vector>

#include <nlohmann/json.hpp>

#include "core/time/Iso8601DateFormatter.h"
#include "core/time/VelmoWindowPolicy.h"

namespace velmo::core {
namespace {

struct Zone {
  const char* id;
  // Moments next to the zone's clock changes, in seconds since 1970 UTC.
  std::vector<std::int64_t> changes;
};

const Zone kZones[] = {
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
    for (const auto day : kAllWeekdays) {
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

int caseCount() {
  if (const char* text = std::getenv("VELMO_WINDOW_DIFFERENTIAL_CASES"))
    return std::max(1, std::atoi(text));
#ifdef NDEBUG
  return 100'000;
#else
  return 5'000;
#endif
}

std::string describe(const VelmoWindowPolicy& policy, TimePoint after, int days) {
  return "zone " + policy.timeZoneId() + ", after " + Iso8601DateFormatter::string(after) + " (" +
         std::to_string(after.time_since_epoch().count()) + " ns), " + std::to_string(days) +
         " days, allow " + nlohmann::json(policy.allowWindows()).dump() + ", deny " +
         nlohmann::json(policy.denyWindows()).dump();
}

struct Tally {
  int found = 0;
  std::vector<std::string> failures;
};

// One share of the cases; each worker has its own generator.
Tally runCases(std::uint64_t seed, int cases) {
  Generator generate(seed);
  Tally tally;
  for (int i = 0; i < cases && tally.failures.size() < 5; ++i) {
    const Zone& zone = generate.zone();
    auto allow = generate.windows(3);
    auto deny = generate.windows(2);
    const VelmoWindowPolicy policy(std::move(allow), std::move(deny), zone.id);
    const auto after = generate.moment(zone);
    const int days = generate.searchDays();
    const auto fast = policy.nextAllowedRunDate(after, days);
    const auto scan = policy.nextAllowedRunDateByScan(after, days);
    if (fast != scan) {
      tally.failures.push_back("seed " + std::to_string(seed) + " case " + std::to_string(i) +
                               ": fast " + Iso8601DateFormatter::string(fast) + ", scan " +
                               Iso8601DateFormatter::string(scan) + "; " +
                               describe(policy, after, days));
    }
    if (scan != after) ++tally.found;
  }
  return tally;
}

TEST(VelmoWindowPolicyDifferential, FastSearchEqualsTheMinuteScan) {
  const int cases = caseCount();
  constexpr int kWorkers = 2;
  std::vector<Tally> tallies(kWorkers);
  std::vector<std::thread> workers;
  for (int w = 0; w < kWorkers; ++w) {
    workers.emplace_back([&tallies, w, cases] {
      tallies[w] = runCases(20260310 + static_cast<std::uint64_t>(w), (cases + w) / kWorkers);
    });
  }
  for (auto& worker : workers) worker.join();
  int found = 0;
  for (const auto& tally : tallies) {
    found += tally.found;
    for (const auto& failure : tally.failures) ADD_FAILURE() << failure;
  }
  // The generator must produce searches that find something, not just ones
  // that start inside a window or give up.
  EXPECT_GT(found, cases / 5);
}

}  // namespace
}  // namespace velmo::core
