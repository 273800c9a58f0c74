// The bus notification centre against a private dbus-daemon and another
// process; the end-to-end scenarios post to the agent with the bus's
// command-line clients.
#include "backends/linux/SdBusNotificationCenter.h"

#include <gtest/gtest.h>
#include <systemd/sd-bus.h>

#include <unistd.h>

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <future>

#include "backends/linux/SdBusAgentObject.h"
#include "backends/linux/SystemClock.h"
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

// Emits one raw signal, as an arbitrary local program could.
void sendRaw(const char* interface, const std::function<void(sd_bus_message*)>& build) {
  sd_bus* bus = nullptr;
  sd_bus_message* m = nullptr;
  ASSERT_GE(sd_bus_open_system(&bus), 0);
  ASSERT_GE(sd_bus_message_new_signal(bus, &m, "/com/marvenith/velmo", interface, "Post"), 0);
  build(m);
  EXPECT_GE(sd_bus_send(bus, m, nullptr), 0);
  sd_bus_message_unref(m);
  sd_bus_flush_close_unref(bus);
}

class SdBusNotificationCenterTest : public ::testing::Test {
 protected:
  void SetUp() override {
    connection_.start();
    ASSERT_TRUE(connection_.isConnected());
  }
  void observe(std::string_view name = kName) {
    center_.addObserver(name, [&](const auto& n) { received_.push_back(n); });
  }
  // Serves the bus a while longer: anything extra would arrive now.
  void serveFor(std::chrono::milliseconds time) {
    context_.restart();
    context_.run_for(time);
  }

  testing::LogCapture capture_;
  std::vector<DistributedNotification> received_;
  testing::PrivateBus bus_;
  asio::io_context context_;
  SystemClock clock_;
  SdBusConnection connection_{context_.get_executor(), clock_};
  SdBusNotificationCenter center_{connection_};
};

// Every plist type but the date crosses as it is; no object and no user info stay absent.
TEST_F(SdBusNotificationCenterTest, PostsReachTheirOwnProcessIntact) {
  observe();
  // A removed observer hears nothing, though another of its name stays.
  center_.removeObserver(center_.addObserver(kName, [](const auto&) { ADD_FAILURE(); }));
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
  center_.post(kName);
  ASSERT_TRUE(runUntil(context_, [&] { return received_.size() == 2; }));
  EXPECT_EQ(received_[0].name, kName);
  EXPECT_EQ(received_[0].object, "{\"id\":\"x\"}");
  PlistDictionary expected = info;
  expected["when"] = "2026-03-10T14:05:09Z";  // The bus has no date type.
  EXPECT_EQ(received_[0].userInfo, expected);
  EXPECT_EQ(received_[1].object, std::nullopt);
  EXPECT_EQ(received_[1].userInfo, std::nullopt);
}

// Whether another account can be posted as; lets it reach the bus socket.
bool canPostAsAnotherAccount() {
  if (::geteuid() != 0 || std::system("command -v setpriv >/dev/null") != 0) return false;
  const std::string address = std::getenv("DBUS_SYSTEM_BUS_ADDRESS");
  const std::filesystem::path socket = address.substr(address.find('=') + 1);
  std::filesystem::permissions(socket.parent_path(), std::filesystem::perms::others_exec,
                               std::filesystem::perm_options::add);
  return true;
}

const std::string kAsUser = "setpriv --reuid=65534 --regid=65534 --clear-groups ";

// Each post carries its sender's account; root-only names from others reach nobody.
TEST_F(SdBusNotificationCenterTest, PostsCarryTheSendersAccountAndRootOnlyNamesNeedRoot) {
  if (!canPostAsAnotherAccount()) GTEST_SKIP() << "needs root and setpriv";
  SdBusNotificationCenter guarded(connection_, {.rootOnlyNames = {"com.example.rootOnly"}});
  std::vector<std::pair<std::string, std::uint32_t>> seen;
  for (const char* name : {"com.example.rootOnly", "com.example.open"}) {
    guarded.addObserver(name, [&](const auto& n) { seen.emplace_back(*n.object, n.senderUid); });
  }
  const std::string post = testing::testProgram("velmo-bus-post").string();
  const std::string asUser = kAsUser + post;
  for (const std::string& command :
       {asUser + " com.example.rootOnly 1 user", asUser + " com.example.open 1 user",
        post + " com.example.rootOnly 1 root"}) {
    ASSERT_EQ(std::system(command.c_str()), 0) << command;
  }
  ASSERT_TRUE(runUntil(context_, [&] { return seen.size() >= 2; }));
  serveFor(std::chrono::milliseconds(200));
  EXPECT_EQ(seen,
            (std::vector<std::pair<std::string, std::uint32_t>>{{"user0", 65534}, {"root0", 0}}));
  EXPECT_EQ(capture_.errors(),
            std::vector<std::string>{"Ignored com.example.rootOnly from uid 65534: only root may "
                                     "post it."});
}

// Posts as calls of the Post method, from programs that exit as soon as they
// are answered: the caller hears whether its post was taken, and root's go on
// to the other listeners as the signal.
struct CallCase {
  const char* name;
  bool asUser;
  const char* notification;
  std::size_t objectSize;
  const char* refusal;  // Part of the error the caller prints; nullptr when taken.
};

void PrintTo(const CallCase& c, std::ostream* os) { *os << c.name; }

class PostCalls : public SdBusNotificationCenterTest,
                  public ::testing::WithParamInterface<CallCase> {};

TEST_P(PostCalls, AnswerTheCaller) {
  if (!canPostAsAnotherAccount()) GTEST_SKIP() << "needs root and setpriv";
  const CallCase& c = GetParam();
  SdBusNotificationCenter served(connection_,
                                 {.rootOnlyNames = {"com.example.rootOnly"}, .servePost = true});
  SdBusAgentObject named(connection_);  // Callers address the agent's name.
  SdBusConnection otherConnection(context_.get_executor(), clock_);
  otherConnection.start();
  SdBusNotificationCenter other(otherConnection);
  std::vector<DistributedNotification> taken, relayed;
  served.addObserver(c.notification, [&](const auto& n) { taken.push_back(n); });
  other.addObserver(c.notification, [&](const auto& n) { relayed.push_back(n); });
  serveFor(std::chrono::milliseconds(100));

  const std::string errors = ::testing::TempDir() + "post-call-errors-" + c.name;
  const std::string command =
      (c.asUser ? kAsUser : "") + testing::testProgram("velmo-bus-post").string() + " --exact " +
      c.notification + " " + std::string(c.objectSize, 'o') + " 2>" + errors;
  auto status = std::async(std::launch::async, [&] { return std::system(command.c_str()); });
  ASSERT_TRUE(runUntil(context_, [&] {
    return status.wait_for(std::chrono::seconds(0)) == std::future_status::ready;
  }));
  serveFor(std::chrono::milliseconds(200));
  std::ifstream printed(errors);
  const std::string error((std::istreambuf_iterator<char>(printed)), {});
  if (c.refusal) {
    EXPECT_NE(status.get(), 0);
    EXPECT_NE(error.find(c.refusal), std::string::npos) << error;
    EXPECT_TRUE(taken.empty());
  } else {
    EXPECT_EQ(status.get(), 0) << error;
    ASSERT_EQ(taken.size(), 1u);
    EXPECT_EQ(taken[0].senderUid, c.asUser ? 65534u : 0u);
  }
  EXPECT_EQ(relayed.size(), !c.refusal && !c.asUser ? 1u : 0u);
}

INSTANTIATE_TEST_SUITE_P(
    Table, PostCalls,
    ::testing::Values(CallCase{"RootsRootOnlyPost", false, "com.example.rootOnly", 8, nullptr},
                      CallCase{"OthersOpenPost", true, "com.example.open", 8, nullptr},
                      CallCase{"OthersRootOnlyPost", true, "com.example.rootOnly", 8,
                               "AccessDenied: Ignored com.example.rootOnly from uid 65534"},
                      CallCase{"TooLarge", false, "com.example.open",
                               SdBusNotificationCenter::kDefaultSizeLimit, "InvalidArgs"}),
    [](const auto& info) { return std::string(info.param.name); });

// Signals that are no post of an observed name: each malformed one names an
// observed notification in arg0, so it does reach the centre's match and
// gives one error line; another interface's reaches nobody and says nothing.
struct UnusableCase {
  const char* name;
  std::function<void(sd_bus_message*)> build;
  const char* error;  // Part of the one error line; none for nullptr.
  const char* interface = SdBusNotificationCenter::kInterface;
};

void PrintTo(const UnusableCase& c, std::ostream* os) { *os << c.name; }

class UnusableSignals : public SdBusNotificationCenterTest,
                        public ::testing::WithParamInterface<UnusableCase> {};

TEST_P(UnusableSignals, AreNeverDelivered) {
  observe();
  observe("");
  sendRaw(GetParam().interface, GetParam().build);
  // A good post after the bad one shows that the bad one has been handled.
  sendRaw(SdBusNotificationCenter::kInterface,
          [](sd_bus_message* m) { sd_bus_message_append(m, "sasa{sv}", kName, 1, "after", 0); });
  ASSERT_TRUE(runUntil(context_, [&] { return received_.size() == 1; }));
  serveFor(std::chrono::milliseconds(50));
  ASSERT_EQ(received_.size(), 1u);
  EXPECT_EQ(received_[0].object, "after");
  const auto errors = capture_.errors();
  ASSERT_EQ(errors.size(), GetParam().error ? 1u : 0u);
  if (GetParam().error) {
    EXPECT_NE(errors[0].find(GetParam().error), std::string::npos) << errors[0];
  }
}

INSTANTIATE_TEST_SUITE_P(
    Table, UnusableSignals,
    ::testing::Values(
        UnusableCase{"NameOnly", [](sd_bus_message* m) { sd_bus_message_append(m, "s", kName); },
                     "unexpected signature 's'"},
        UnusableCase{
            "WrongDictionaryType",
            [](sd_bus_message* m) { sd_bus_message_append(m, "sasa{si}", kName, 0, 1, "k", 3); },
            "unexpected signature"},
        UnusableCase{"TwoObjects",
                     [](sd_bus_message* m) {
                       sd_bus_message_append(m, "sasa{sv}", kName, 2, "one", "two", 0);
                     },
                     "more than one object"},
        UnusableCase{"ObjectPathValue",
                     [](sd_bus_message* m) {
                       sd_bus_message_append(m, "sasa{sv}", kName, 0, 1, "k", "o", "/x");
                     },
                     "has no property-list form"},
        UnusableCase{"StructValue",
                     [](sd_bus_message* m) {
                       sd_bus_message_append(m, "sasa{sv}", kName, 0, 1, "k", "(ii)", 1, 2);
                     },
                     "has no property-list form"},
        UnusableCase{"IntegerKeyedDictionary",
                     [](sd_bus_message* m) {
                       sd_bus_message_append(m, "sasa{sv}", kName, 0, 1, "k", "a{is}", 1, 7, "x");
                     },
                     "keys must be strings"},
        UnusableCase{"TooLarge",
                     [](sd_bus_message* m) {
                       const std::string object(SdBusNotificationCenter::kDefaultSizeLimit, 'x');
                       sd_bus_message_append(m, "sasa{sv}", kName, 1, object.c_str(), 0);
                     },
                     "larger than the 65536 bytes allowed"},
        UnusableCase{"EmptyName",
                     [](sd_bus_message* m) { sd_bus_message_append(m, "sasa{sv}", "", 0, 0); },
                     "empty notification name"},
        UnusableCase{
            "OtherInterface",
            [](sd_bus_message* m) { sd_bus_message_append(m, "sasa{sv}", kName, 1, "foreign", 0); },
            nullptr, "com.example.Other"}),
    [](const auto& info) { return std::string(info.param.name); });

}  // namespace
}  // namespace velmo::platform::linux
