// The fast search must give exactly what judging every candidate minute
// gives. Random policies, random moments, and zones whose clock changes are
// the hard part: 30-minute changes, skipped and repeated midnights, a gap
// around midnight, a skipped day, offsets with seconds.
#include <gtest/gtest.h>

#include <algorithm>
#include <cstdlib>
#include <limits>
#include <string>
#include <thread>
#include <vector>

#include <nlohmann/json.hpp>

#include "core/time/Iso8601DateFormatter.h"
#include "core/time/VelmoWindowPolicy.h"
#include "tests/support/RandomWindowPolicies.h"

namespace velmo::core {
namespace {

using testing::Generator;
using testing::Zone;

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

// The stretches cover the span without gaps, and each judges its moments as
// isWithinAllowedWindow does: its ends, and a moment inside.
TEST(VelmoWindowPolicyDifferential, StretchesJudgeAsTheMomentCheckDoes) {
  Generator generate(20261124);
  for (int i = 0; i < 2'000; ++i) {
    const auto& zone = generate.zone();
    const VelmoWindowPolicy policy(generate.windows(3), generate.windows(2), zone.id);
    const auto from = generate.moment(zone);
    const auto to = from + std::chrono::hours(50);
    const auto stretches = policy.stretches(from, to);
    ASSERT_FALSE(stretches.empty());
    EXPECT_EQ(stretches.front().start, from);
    EXPECT_EQ(stretches.back().end, to);
    for (std::size_t s = 0; s < stretches.size(); ++s) {
      const auto& stretch = stretches[s];
      if (s > 0) {
        ASSERT_EQ(stretch.start, stretches[s - 1].end);
      }
      const bool allowed = stretch.verdict.kind == VelmoWindowPolicy::Verdict::Kind::allowed;
      const auto middle = stretch.start + (stretch.end - stretch.start) / 2;
      for (const auto moment :
           {stretch.start, middle, stretch.end - std::chrono::milliseconds(1)}) {
        ASSERT_EQ(policy.isWithinAllowedWindow(moment), allowed)
            << Iso8601DateFormatter::string(moment) << "; " << describe(policy, from, 2);
      }
    }
  }
}

}  // namespace
}  // namespace velmo::core
