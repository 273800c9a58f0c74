#include "backends/linux/LogindWorkspaceEvents.h"

#include <gtest/gtest.h>
#include <systemd/sd-bus.h>

#include "backends/linux/SystemClock.h"
#include "tests/support/BusTesting.h"
#include "tests/support/PrivateBus.h"

namespace velmo::platform::linux {
namespace {

using testing::runUntil;

// A second connection that can claim the logind name and emit its signals.
class FakeLogind {
 public:
  FakeLogind() { EXPECT_GE(sd_bus_open_system(&bus_), 0); }
  ~FakeLogind() { sd_bus_flush_close_unref(bus_); }
  void ownName() { EXPECT_GE(sd_bus_request_name(bus_, "org.freedesktop.login1", 0), 0); }
  void emit(const char* member, bool value) {
    EXPECT_GE(sd_bus_emit_signal(bus_, "/org/freedesktop/login1", "org.freedesktop.login1.Manager",
                                 member, "b", value ? 1 : 0),
              0);
    sd_bus_flush(bus_);
  }

 private:
  sd_bus* bus_ = nullptr;
};

class LogindWorkspaceEventsTest : public ::testing::Test {
 protected:
  void SetUp() override {
    connection_.start();
    ASSERT_TRUE(connection_.isConnected());
    events_.addObserver([&](WorkspaceEvent event) { seen_.push_back(event); });
  }

  testing::PrivateBus bus_;
  asio::io_context context_;
  SystemClock clock_;
  SdBusConnection connection_{context_.get_executor(), clock_};
  LogindWorkspaceEvents events_{connection_};
  std::vector<WorkspaceEvent> seen_;
};

TEST_F(LogindWorkspaceEventsTest, TheSameSignalsFromAnyoneElseAreIgnoredOwnerOrNot) {
  FakeLogind impostor;
  impostor.emit("PrepareForSleep", true);  // While nobody owns the name.
  context_.run_for(std::chrono::milliseconds(200));
  FakeLogind logind;
  logind.ownName();
  impostor.emit("PrepareForSleep", true);
  impostor.emit("PrepareForShutdown", true);
  logind.emit("PrepareForSleep", false);  // Marks the end of the impostor's signals.
  ASSERT_TRUE(runUntil(context_, [&] { return !seen_.empty(); }));
  EXPECT_EQ(seen_, std::vector<WorkspaceEvent>{WorkspaceEvent::didWake});
}

}  // namespace
}  // namespace velmo::platform::linux
