#include "agent/main/ServiceStatus.h"

#include <gtest/gtest.h>

#include "backends/fake/RecordingServiceManager.h"
#include "backends/fake/VirtualClock.h"
#include "core/time/VelmoFormatters.h"

namespace velmo::agent {
namespace {

const platform::TimePoint kAt = platform::fake::VirtualClock::kDefaultStart;
std::string at() { return core::VelmoFormatters::friendlyDate(kAt); }

struct LineCase {
  const char* name;
  run::RunActivity runs;
  bool maintenance;
  std::size_t items, toolRuns;
  std::string line, busy;
};
void PrintTo(const LineCase& c, std::ostream* os) { *os << c.name; }

class ServiceStatusLine : public ::testing::TestWithParam<LineCase> {};

TEST_P(ServiceStatusLine, SaysWhatRunsAndWhatAStopWouldWaitFor) {
  const LineCase& c = GetParam();
  const maintenance::MaintenanceActivity housekeeping{.running = c.maintenance};
  EXPECT_EQ(ServiceStatus::line(c.runs, housekeeping, c.items), c.line);
  EXPECT_EQ(ServiceStatus::busy(c.runs, housekeeping, c.toolRuns), c.busy);
}

INSTANTIATE_TEST_SUITE_P(
    States, ServiceStatusLine,
    ::testing::Values(
        LineCase{"IdleWithAPlan",
                 {.nextRunDate = kAt},
                 false,
                 2,
                 0,
                 "Idle; next Velmo Run at " + at() + "; 2 pending items.",
                 ""},
        LineCase{
            "IdleWithoutAPlan", {}, false, 1, 0, "Idle; no Velmo Run planned; 1 pending item.", ""},
        LineCase{"AUsersRun",
                 {.inProgress = true,
                  .userInitiated = true,
                  .startedAt = kAt,
                  .pending = true,
                  .runCount = 4},
                 false,
                 0,
                 1,
                 "User-initiated Velmo Run #5 in progress since " + at() +
                     ", another pass asked for; no pending items.",
                 "a user-initiated Velmo Run, 1 tool run"},
        LineCase{"HousekeepingAndAQueuedInstall",
                 {},
                 true,
                 0,
                 2,
                 "Idle; no Velmo Run planned; maintenance cycle running; no pending items.",
                 "2 tool runs, a maintenance cycle"}),
    [](const ::testing::TestParamInfo<LineCase>& info) { return info.param.name; });

TEST(ServiceStatus, SaysEachChangeOnceAndNothingWhileStopping) {
  platform::fake::RecordingServiceManager manager;
  core::AgentLifecycle lifecycle;
  ServiceStatus status(manager, lifecycle);
  core::Published<run::RunActivity> runs{run::RunActivity{}};
  core::Published<maintenance::MaintenanceActivity> maintenance{{}};
  core::Published<std::size_t> toolRuns{0}, items{0};
  status.follow(runs, maintenance, toolRuns, items);
  toolRuns.set(1);  // Changes what a stop waits for, not the line.
  items.set(3);
  lifecycle.advance(core::LifePhase::draining);
  items.set(4);
  EXPECT_EQ(manager.messages,
            (std::vector<std::string>{"STATUS=Idle; no Velmo Run planned; no pending items.",
                                      "STATUS=Idle; no Velmo Run planned; 3 pending items."}));
  EXPECT_EQ(status.busyNow().value(), "1 tool run");
}

}  // namespace
}  // namespace velmo::agent
