// The bus notification centre against a private dbus-daemon and another
// process; the end-to-end scenarios post to the agent with the bus's
// command-line clients.
#include "platform/linux/SdBusNotificationCenter.h"

#include <gtest/gtest.h>
#include <systemd/sd-bus.h>

#include <unistd.h>

#include <algorithm>
#include <cstdlib>
#include <filesystem>

#include "platform/linux/SystemClock.h"
#include "tests/support/BusTesting.h"
#include "tests/support/LogCapture.h"
#include "tests/support/PrivateBus.h"
#include "tests/support/TestPrograms.h"

namespace velmo::platform::linux {
namespace {

using core::PlistArray;
using core::PlistDictionary;
using testing::runUntil;

constexpr const char* kName = "com.marvenith.velmo.dialogResponse";

// Emits raw signals, as an arbitrary local program could.
class RawSender {
 public:
  RawSender() { EXPECT_GE(sd_bus_open_system(&bus_), 0); }
  ~RawSender() { sd_bus_flush_close_unref(bus_); }
  sd_bus* bus() { return bus_; }
  sd_bus_message* signal(const char* interface = SdBusNotificationCenter::kInterface,
                         const char* member = "Post") {
    sd_bus_message* m = nullptr;
    EXPECT_GE(sd_bus_message_new_signal(bus_, &m, "/com/marvenith/velmo", interface, member), 0);
    return m;
  }
  void send(sd_bus_message* m) {
    EXPECT_GE(sd_bus_send(bus_, m, nullptr), 0);
    sd_bus_message_unref(m);
    sd_bus_flush(bus_);
  }

 private:
  sd_bus* bus_ = nullptr;
};

class SdBusNotificationCenterTest : public ::testing::Test {
 protected:
  void SetUp() override {
    connection_.start();
    ASSERT_TRUE(connection_.isConnected());
  }

  std::vector<DistributedNotification> received_;
  testing::PrivateBus bus_;
  asio::io_context context_;
  SystemClock clock_;
  SdBusConnection connection_{context_.get_executor(), clock_};
  SdBusNotificationCenter center_{connection_};
};

TEST_F(SdBusNotificationCenterTest, APostReachesItsOwnProcessIntact) {
  center_.addObserver(kName, [&](const auto& n) { received_.push_back(n); });
  const PlistDictionary info{
      {"flag", true},
      {"count", std::int64_t{-42}},
      {"ratio", 0.25},
      {"text", "grüße"},
      {"names", PlistArray{"a", "b"}},
      {"mixed", PlistArray{1, "x", PlistDictionary{{"k", false}}}},
      {"data", core::PlistData{0, 255}},
      {"when", core::PlistDate{TimePoint(std::chrono::seconds(1773151509))}}};
  center_.post(kName, "{\"id\":\"x\"}", info);
  ASSERT_TRUE(runUntil(context_, [&] { return received_.size() == 1; }));
  EXPECT_EQ(received_[0].name, kName);
  EXPECT_EQ(received_[0].object, "{\"id\":\"x\"}");
  PlistDictionary expected = info;
  expected["when"] = "2026-03-10T14:05:09Z";  // The bus has no date type.
  EXPECT_EQ(received_[0].userInfo, expected);
}

// Each post carries its sender's account; root-only names from others reach nobody.
TEST_F(SdBusNotificationCenterTest, PostsCarryTheSendersAccountAndRootOnlyNamesNeedRoot) {
  if (::geteuid() != 0 || std::system("command -v setpriv >/dev/null") != 0) {
    GTEST_SKIP() << "needs root and setpriv";
  }
  // The bus socket's folder must let the other account through.
  const std::string address = std::getenv("DBUS_SYSTEM_BUS_ADDRESS");
  const std::filesystem::path socket = address.substr(address.find('=') + 1);
  std::filesystem::permissions(socket.parent_path(), std::filesystem::perms::others_exec,
                               std::filesystem::perm_options::add);
  testing::LogCapture capture;
  SdBusNotificationCenter guarded(connection_, {"com.example.rootOnly"});
  std::vector<std::pair<std::string, std::uint32_t>> seen;
  for (const char* name : {"com.example.rootOnly", "com.example.open"}) {
    guarded.addObserver(name, [&](const auto& n) { seen.emplace_back(*n.object, n.senderUid); });
  }
  const std::string post = testing::testProgram("velmo-bus-post").string();
  const std::string asUser = "setpriv --reuid=65534 --regid=65534 --clear-groups " + post;
  for (const std::string& command :
       {asUser + " com.example.rootOnly 1 user", asUser + " com.example.open 1 user",
        post + " com.example.rootOnly 1 root"}) {
    ASSERT_EQ(std::system(command.c_str()), 0) << command;
  }
  ASSERT_TRUE(runUntil(context_, [&] { return seen.size() >= 2; }));
  context_.restart();
  context_.run_for(std::chrono::milliseconds(200));
  EXPECT_EQ(seen,
            (std::vector<std::pair<std::string, std::uint32_t>>{{"user0", 65534}, {"root0", 0}}));
  ASSERT_EQ(capture.errors().size(), 1u);
  EXPECT_EQ(capture.errors()[0],
            "Ignored com.example.rootOnly from uid 65534: only root may post it.");
}

TEST_F(SdBusNotificationCenterTest, NoObjectAndNoUserInfoStayAbsent) {
  center_.addObserver(kName, [&](const auto& n) { received_.push_back(n); });
  center_.post(kName);
  ASSERT_TRUE(runUntil(context_, [&] { return received_.size() == 1; }));
  EXPECT_EQ(received_[0].object, std::nullopt);
  EXPECT_EQ(received_[0].userInfo, std::nullopt);
}

TEST_F(SdBusNotificationCenterTest, ABurstOfTenThousandArrivesWholeOnceEachInOrder) {
  std::vector<std::string> objects;
  center_.addObserver("com.example.burst",
                      [&](const auto& n) { objects.push_back(n.object.value_or("?")); });
  const std::string command =
      testing::testProgram("velmo-bus-post").string() + " com.example.burst 10000 n";
  ASSERT_EQ(std::system(command.c_str()), 0);
  ASSERT_TRUE(runUntil(
      context_, [&] { return objects.size() >= 10000; }, std::chrono::seconds(60)));
  context_.restart();
  context_.run_for(std::chrono::milliseconds(100));  // Anything extra would show now.
  ASSERT_EQ(objects.size(), 10000u);
  for (std::size_t i = 0; i < objects.size(); ++i) {
    ASSERT_EQ(objects[i], "n" + std::to_string(i)) << "at " << i;
  }
}

// Each malformed signal names the observed notification in arg0, so it does
// reach the centre's match: one error line, no delivery.
struct MalformedCase {
  const char* name;
  std::function<void(sd_bus_message*)> build;
  const char* reason;
};

void PrintTo(const MalformedCase& c, std::ostream* os) { *os << c.name; }

class MalformedSignals : public SdBusNotificationCenterTest,
                         public ::testing::WithParamInterface<MalformedCase> {};

TEST_P(MalformedSignals, AreLoggedOnceAndNotDelivered) {
  testing::LogCapture capture;
  center_.addObserver(kName, [&](const auto& n) { received_.push_back(n); });
  RawSender sender;
  sd_bus_message* bad = sender.signal();
  GetParam().build(bad);
  sender.send(bad);
  // A good post after the bad one shows that the bad one has been handled.
  center_.post(kName, "after");
  ASSERT_TRUE(runUntil(context_, [&] { return received_.size() == 1; }));
  EXPECT_EQ(received_[0].object, "after");
  const auto errors = capture.errors();
  ASSERT_EQ(errors.size(), 1u);
  EXPECT_NE(errors[0].find(GetParam().reason), std::string::npos) << errors[0];
}

INSTANTIATE_TEST_SUITE_P(
    Table, MalformedSignals,
    ::testing::Values(
        MalformedCase{"NameOnly", [](sd_bus_message* m) { sd_bus_message_append(m, "s", kName); },
                      "unexpected signature 's'"},
        MalformedCase{
            "WrongDictionaryType",
            [](sd_bus_message* m) { sd_bus_message_append(m, "sasa{si}", kName, 0, 1, "k", 3); },
            "unexpected signature"},
        MalformedCase{"TwoObjects",
                      [](sd_bus_message* m) {
                        sd_bus_message_append(m, "sasa{sv}", kName, 2, "one", "two", 0);
                      },
                      "more than one object"},
        MalformedCase{"ObjectPathValue",
                      [](sd_bus_message* m) {
                        sd_bus_message_append(m, "sasa{sv}", kName, 0, 1, "k", "o", "/x");
                      },
                      "has no property-list form"},
        MalformedCase{"StructValue",
                      [](sd_bus_message* m) {
                        sd_bus_message_append(m, "sasa{sv}", kName, 0, 1, "k", "(ii)", 1, 2);
                      },
                      "has no property-list form"},
        MalformedCase{"IntegerKeyedDictionary",
                      [](sd_bus_message* m) {
                        sd_bus_message_append(m, "sasa{sv}", kName, 0, 1, "k", "a{is}", 1, 7, "x");
                      },
                      "keys must be strings"}));

TEST_F(SdBusNotificationCenterTest, AnEmptyNameIsLoggedAndNeverDelivered) {
  testing::LogCapture capture;
  center_.addObserver("", [&](const auto& n) { received_.push_back(n); });
  RawSender sender;
  sd_bus_message* m = sender.signal();
  sd_bus_message_append(m, "sasa{sv}", "", 0, 0);
  sender.send(m);
  ASSERT_TRUE(runUntil(context_, [&] { return !capture.errors().empty(); }));
  EXPECT_TRUE(received_.empty());
  EXPECT_NE(capture.errors()[0].find("empty notification name"), std::string::npos);
}

TEST_F(SdBusNotificationCenterTest, SignalsOfOtherInterfacesAreNeverSeen) {
  testing::LogCapture capture;
  center_.addObserver(kName, [&](const auto& n) { received_.push_back(n); });
  RawSender sender;
  sd_bus_message* other = sender.signal("com.example.Other");
  sd_bus_message_append(other, "sasa{sv}", kName, 1, "foreign", 0);
  sender.send(other);
  center_.post(kName, "ours");
  ASSERT_TRUE(runUntil(context_, [&] { return received_.size() == 1; }));
  context_.restart();
  context_.run_for(std::chrono::milliseconds(50));
  ASSERT_EQ(received_.size(), 1u);
  EXPECT_EQ(received_[0].object, "ours");
  EXPECT_TRUE(capture.errors().empty());
}

TEST_F(SdBusNotificationCenterTest, RemovedObserversAndOtherNamesGetNothing) {
  int first = 0, second = 0, other = 0;
  auto token = center_.addObserver(kName, [&](const auto&) { ++first; });
  center_.addObserver(kName, [&](const auto&) { ++second; });
  center_.addObserver("com.example.unrelated", [&](const auto&) { ++other; });
  center_.post(kName);
  ASSERT_TRUE(runUntil(context_, [&] { return second == 1; }));
  center_.removeObserver(token);
  center_.post(kName);
  ASSERT_TRUE(runUntil(context_, [&] { return second == 2; }));
  EXPECT_EQ(first, 1);
  EXPECT_EQ(other, 0);
}

TEST_F(SdBusNotificationCenterTest, ObserversComeBackAfterTheBusRestarts) {
  testing::LogCapture capture;
  center_.addObserver(kName, [&](const auto& n) { received_.push_back(n); });
  bus_.stop();
  ASSERT_TRUE(runUntil(context_, [&] { return !connection_.isConnected(); }));
  // Other processes can't hear it; this one's observers still do.
  center_.post(kName, "during the outage");
  ASSERT_TRUE(runUntil(context_, [&] { return received_.size() == 1; }));
  EXPECT_EQ(received_[0].object, "during the outage");
  bus_.start();
  ASSERT_TRUE(runUntil(
      context_, [&] { return connection_.isConnected(); }, std::chrono::seconds(10)));
  const std::string command =
      testing::testProgram("velmo-bus-post").string() + " " + kName + " 1 again-";
  ASSERT_EQ(std::system(command.c_str()), 0);
  ASSERT_TRUE(runUntil(context_, [&] { return received_.size() == 2; }));
  EXPECT_EQ(received_[1].object, "again-0");
  // The sender-account connection, on its own thread, may log its loss first.
  const auto errors = capture.errors();
  EXPECT_TRUE(std::any_of(errors.begin(), errors.end(), [](const std::string& line) {
    return line.find("System bus connection lost") != std::string::npos;
  }));
}

}  // namespace
}  // namespace velmo::platform::linux
