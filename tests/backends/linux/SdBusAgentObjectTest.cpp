// The agent's status object and its reader against a private dbus-daemon. The
// reader blocks, so it runs on a thread of its own while the test's thread
// serves the object.
#include "backends/linux/SdBusAgentObject.h"

#include <gtest/gtest.h>
#include <systemd/sd-bus.h>

#include <unistd.h>

#include <cstdio>
#include <future>
#include <sstream>

#include "backends/linux/SdBusAgentStatusCodec.h"
#include "backends/linux/SdBusAgentStatusReader.h"
#include "backends/linux/SystemClock.h"
#include "tests/support/BusTesting.h"
#include "tests/support/LogCapture.h"
#include "tests/support/PrivateBus.h"

namespace velmo::platform::linux {
namespace {

using namespace std::chrono_literals;
using Codec = SdBusAgentStatusCodec;
using testing::runUntil;

TimePoint at(std::int64_t microseconds) {
  return TimePoint(std::chrono::microseconds(microseconds));
}

// A plain client connection, as any local program would open.
class Client {
 public:
  Client() { EXPECT_GE(sd_bus_open_system(&bus_), 0); }
  ~Client() { sd_bus_flush_close_unref(bus_); }
  sd_bus* bus() const { return bus_; }
  // The unique name that owns the agent's name, or "".
  std::string owner() const {
    sd_bus_creds* creds = nullptr;
    const char* name = nullptr;
    sd_bus_get_name_creds(bus_, Codec::kBusName, SD_BUS_CREDS_UNIQUE_NAME, &creds);
    std::string result = creds && sd_bus_creds_get_unique_name(creds, &name) >= 0 ? name : "";
    sd_bus_creds_unref(creds);
    return result;
  }
  void pump() {
    while (sd_bus_process(bus_, nullptr) > 0) {
    }
  }

 private:
  sd_bus* bus_ = nullptr;
};

class SdBusAgentObjectTest : public ::testing::Test {
 protected:
  void SetUp() override {
    connection_.start();
    ASSERT_TRUE(runUntil(context_, [&] { return !client_.owner().empty(); }));
  }

  // Runs `blocking` on another thread while this one serves the bus.
  template <class F>
  auto whileServing(F blocking) {
    auto result = std::async(std::launch::async, std::move(blocking));
    EXPECT_TRUE(
        runUntil(context_, [&] { return result.wait_for(0s) == std::future_status::ready; }));
    return result.get();
  }
  std::optional<RunningAgent> read() {
    return whileServing([] { return SdBusAgentStatusReader().read(); });
  }

  testing::PrivateBus bus_;
  asio::io_context context_;
  SystemClock clock_;
  SdBusConnection connection_{context_.get_executor(), clock_};
  std::unique_ptr<SdBusAgentObject> agent_ = std::make_unique<SdBusAgentObject>(connection_);
  Client client_;
};

// What any bus client sees, independently of the codec both sides share:
// read-only properties, microseconds since the epoch, 0 for none, no methods.
TEST_F(SdBusAgentObjectTest, BusClientsSeeEveryPropertyWithItsWireValue) {
  agent_->publish({.version = "1.2.3",
                   .startedAt = TimePoint(std::chrono::nanoseconds(1773151509123456789)),
                   .nextRunDate = at(1773165909000001),
                   .runPending = true,
                   .runCount = 12,
                   .runsHeldBy = "on battery (RunOnlyOnACPower)"});
  const std::string output = whileServing([] {
    const std::string command = std::string("gdbus introspect --system -d ") + Codec::kBusName +
                                " -o " + Codec::kObjectPath + " 2>&1";
    std::string text(1 << 16, '\0');
    FILE* pipe = ::popen(command.c_str(), "r");
    text.resize(pipe ? std::fread(text.data(), 1, text.size(), pipe) : 0);
    if (pipe) ::pclose(pipe);
    return text;
  });
  // The interface's block, line by line, without indentation.
  std::vector<std::string> block;
  std::istringstream lines(output);
  bool inside = false;
  for (std::string line; std::getline(lines, line);) {
    line.erase(0, line.find_first_not_of(' '));
    if (inside && line == "};") break;
    if (inside) block.push_back(line);
    inside = inside || line == std::string("interface ") + Codec::kInterface + " {";
  }
  EXPECT_EQ(block, (std::vector<std::string>{
                       "methods:",
                       "signals:",
                       "properties:",
                       "readonly s Version = '1.2.3';",
                       "readonly t StartedAt = 1773151509123456;",
                       "readonly t NextRunDate = 1773165909000001;",
                       "readonly b RunInProgress = false;",
                       "readonly t RunStartedAt = 0;",
                       "readonly b RunPending = true;",
                       "readonly t LastRunDate = 0;",
                       "readonly x RunCount = 12;",
                       "readonly s RunsHeldBy = 'on battery (RunOnlyOnACPower)';",
                       "readonly t NextMaintenanceDate = 0;",
                       "readonly b MaintenanceRunning = false;",
                   }))
      << output;
}

TEST_F(SdBusAgentObjectTest, AfterTheBusRestartsTheNameAndTheLatestStatusAreBack) {
  testing::LogCapture capture;
  bus_.stop();
  ASSERT_TRUE(runUntil(context_, [&] { return !connection_.isConnected(); }));
  const AgentStatus status{.version = "during the outage", .runCount = 3};
  agent_->publish(status);
  bus_.start();
  Client client;
  ASSERT_TRUE(runUntil(context_, [&] { return !client.owner().empty(); }));
  const auto agent = read();
  ASSERT_TRUE(agent);
  EXPECT_EQ(agent->status, status);
}

TEST_F(SdBusAgentObjectTest, ASecondAgentWarnsAndTakesTheNameWhenTheFirstLeaves) {
  testing::LogCapture capture;
  SdBusConnection secondConnection{context_.get_executor(), clock_};
  SdBusAgentObject second{secondConnection};
  secondConnection.start();
  second.publish({.version = "second"});
  ASSERT_TRUE(runUntil(context_, [&] { return !capture.errors().empty(); }));
  EXPECT_EQ(capture.errors(),
            std::vector<std::string>{"Cannot own com.marvenith.velmo.Agent: another program has "
                                     "it; this agent takes it when that one leaves"});
  agent_.reset();
  const char* secondName = nullptr;
  sd_bus_get_unique_name(secondConnection.bus(), &secondName);
  ASSERT_TRUE(runUntil(context_, [&] { return client_.owner() == secondName; }));
  const auto agent = read();
  ASSERT_TRUE(agent);
  EXPECT_EQ(agent->status.version, "second");
}

// Whatever the name's owner answers, the reader takes only what it can use.
TEST(SdBusAgentStatusReader, TakesOnlyWellTypedPropertiesFromAForgedAnswer) {
  testing::PrivateBus bus;
  Client forger;
  ASSERT_GE(sd_bus_request_name(forger.bus(), Codec::kBusName, 0), 0);
  auto answer = [](sd_bus_message* call, void*, sd_bus_error*) -> int {
    return sd_bus_reply_method_return(
        call, "a{sv}", 7, "Version", "i", 7, "RunCount", "t", std::uint64_t{5}, "StartedAt", "t",
        UINT64_MAX, "LastRunDate", "t", std::uint64_t{1773151509000000}, "RunInProgress", "b", 1,
        "Unknown", "as", 1, "x", "NextRunDate", "(tt)", std::uint64_t{1}, std::uint64_t{2});
  };
  ASSERT_GE(sd_bus_add_object(forger.bus(), nullptr, Codec::kObjectPath, answer, nullptr), 0);
  auto reading = std::async(std::launch::async, [] { return SdBusAgentStatusReader().read(); });
  while (reading.wait_for(0s) != std::future_status::ready) {
    forger.pump();
    sd_bus_wait(forger.bus(), 5000);
  }
  const auto agent = reading.get();
  ASSERT_TRUE(agent);
  EXPECT_EQ(agent->status,
            (AgentStatus{.runInProgress = true, .lastRunDate = at(1773151509000000)}));
}

TEST(SdBusAgentStatusReader, GivesNothingWithoutAnAgentThatAnswers) {
  testing::PrivateBus bus;
  auto expectNothingInTime = [](const char* situation) {
    const auto start = std::chrono::steady_clock::now();
    EXPECT_FALSE(SdBusAgentStatusReader().read()) << situation;
    EXPECT_LT(std::chrono::steady_clock::now() - start, 1500ms) << situation;
  };
  expectNothingInTime("nobody owns the name");
  {
    Client silent;
    ASSERT_GE(sd_bus_request_name(silent.bus(), Codec::kBusName, 0), 0);
    expectNothingInTime("the owner never answers");
  }
  bus.stop();
  expectNothingInTime("no bus");
}

}  // namespace
}  // namespace velmo::platform::linux
