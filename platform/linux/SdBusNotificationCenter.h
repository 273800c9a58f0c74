#pragma once

#include <cstdint>
#include <deque>
#include <map>
#include <memory>
#include <set>
#include <string>
#include <unordered_map>
#include <unordered_set>

#include "core/logging/CustomLogger.h"
#include "core/logging/LogBudget.h"
#include "platform/DistributedNotificationCenter.h"
#include "platform/linux/SdBusConnection.h"
#include "platform/linux/SdBusSenderAccounts.h"

namespace velmo::platform::linux {

// Distributed notifications as D-Bus signals: each post is one signal
// /com/marvenith/velmo com.marvenith.velmo.Notifications.Post, and each
// observed name has one match rule with arg0 = name. Posts made while the
// connection is down are lost, as on a Mac when nobody listens.
//
// Every post is delivered with its sender's account, which the bus daemon
// tells (GetConnectionUnixUser). The question is asked as soon as a
// connection appears on the bus (NameOwnerChanged), before it can post and
// leave. Questions travel on a connection and a thread of their own
// (SdBusSenderAccounts), so that neither the question nor its answer ever
// queues behind a burst of posts. Posts wait, in arrival order, for their
// sender's answer; a sender that left before it was asked counts as unknown,
// which is trusted like any account but root.
class SdBusNotificationCenter final : public DistributedNotificationCenter {
 public:
  static constexpr const char* kObjectPath = "/com/marvenith/velmo";
  static constexpr const char* kInterface = "com.marvenith.velmo.Notifications";
  static constexpr const char* kMember = "Post";

  // Posts waiting for their senders' accounts; more are dropped. The daemon
  // answers within a round trip, so only a flood of new connections comes near.
  static constexpr std::size_t kMaxWaitingPosts = 4096;
  // Accounts kept: the newest connections' (a few MB at most). A post from an
  // older one waits for the daemon's answer again.
  static constexpr std::size_t kMaxAccounts = 65536;

  // A post of one of `rootOnlyNames` from another account than root reaches no observer.
  explicit SdBusNotificationCenter(SdBusConnection& connection,
                                   std::set<std::string, std::less<>> rootOnlyNames = {});
  ~SdBusNotificationCenter() override;

  // Safe from any thread: the post moves to the main executor, in order.
  void post(std::string_view name, std::optional<std::string> object = std::nullopt,
            std::optional<core::PlistDictionary> userInfo = std::nullopt) override;
  // Main executor only.
  ObserverToken addObserver(std::string_view name, Handler handler) override;
  void removeObserver(ObserverToken token) override;

 private:
  struct NameEntry {
    SdBusConnection::MatchId match = 0;
    std::map<std::uint64_t, Handler> handlers;
  };

  struct WaitingPost {
    sd_bus_message* message;
    std::string sender;
  };

  void send(const DistributedNotification& notification);
  void receive(sd_bus_message* message);
  void deliver(sd_bus_message* message, std::uint32_t senderUid);
  void deliverWaiting();
  // Calls this process's observers of the notification's name.
  void dispatch(const DistributedNotification& notification);
  void answered(const std::string& uniqueName, std::uint32_t uid);
  void remember(const std::string& uniqueName, std::uint32_t uid);
  void forgetAccounts();
  void startSenderAccounts();

  SdBusConnection& connection_;
  std::set<std::string, std::less<>> rootOnlyNames_;
  core::CustomLogger logger_{"SdBusNotificationCenter"};
  // Accounts by unique name. A daemon never gives a unique name twice, so an
  // answer holds after its connection left, until the daemon restarts.
  std::unordered_map<std::string, std::uint32_t> accounts_;
  std::deque<std::string> accountOrder_;  // Oldest first, for the bound.
  std::unordered_set<std::string> asked_;
  std::deque<WaitingPost> waiting_;
  core::LogBudget refusals_{logger_, connection_.clock(), connection_.executor()};
  std::shared_ptr<bool> alive_ = std::make_shared<bool>(true);
  // Made with the first observer; the destructor stops its thread first.
  std::unique_ptr<SdBusSenderAccounts> senderAccounts_;
  std::uint64_t nextToken_ = 1;
  std::uint64_t deliveredPosts_ = 0;
  std::map<std::string, NameEntry, std::less<>> names_;
  std::map<std::uint64_t, std::string> tokenNames_;
};

}  // namespace velmo::platform::linux
