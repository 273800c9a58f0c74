#pragma once

#include <atomic>
#include <cstdint>
#include <deque>
#include <functional>
#include <map>
#include <memory>
#include <optional>
#include <set>
#include <string>
#include <unordered_map>
#include <unordered_set>
#include <variant>

#include <asio/any_io_executor.hpp>

#include "backends/linux/PostBacklog.h"
#include "backends/linux/SdBusConnection.h"
#include "backends/linux/SdBusSenderAccounts.h"
#include "core/Lifetime.h"
#include "core/logging/CustomLogger.h"
#include "core/logging/LogBudget.h"
#include "platform/DistributedNotificationCenter.h"

namespace velmo::platform::linux {

// Distributed notifications on the bus. Each post is one signal
// /com/marvenith/velmo com.marvenith.velmo.Notifications.Post, and each
// observed name has one match rule with arg0 = name. Posts made while the
// connection is down are lost, as on a Mac when nobody listens.
//
// Every post is delivered with its sender's account, which the bus daemon
// tells (GetConnectionUnixUser); a sender's posts wait, in arrival order, for
// that answer, and a sender that left before it was asked counts as unknown,
// which is trusted like any account but root. The question is asked as soon
// as a connection appears (SdBusSenderAccounts), but a program that posts and
// leaves at once can still be missed. So a centre that serves the Post method
// (the agent, which owns a well-known name) also takes posts as method calls
// with the same body: the caller waits for the reply, so its account is
// always known, and a refusal comes back to it as an error. Root's posts taken
// this way are broadcast as the signal for the other listeners.
//
// This process's own posts reach its own observers directly, and their echo
// from the bus is ignored: no full queue in the bus daemon can lose them.
//
// Everything above runs on the connection's executor, which may be a thread
// of its own (SdBusThread): it reads the bus while handlers run on the
// observers' executor, and decodes each post once, within a size limit,
// before any observer sees it. What waits between the two is bounded.
class SdBusNotificationCenter final : public DistributedNotificationCenter {
 public:
  static constexpr const char* kObjectPath = "/com/marvenith/velmo";
  static constexpr const char* kInterface = "com.marvenith.velmo.Notifications";
  static constexpr const char* kMember = "Post";
  // What a post may take up (object and user info) unless its name is given
  // another limit: a companion's answers are a few hundred bytes.
  static constexpr std::size_t kDefaultSizeLimit = 64 * 1024;

  // Posts waiting for their senders' accounts; more are dropped. The daemon
  // answers within a round trip, so only a flood of new connections comes near.
  static constexpr std::size_t kMaxWaitingPosts = 4096;
  static constexpr std::size_t kMaxWaitingBytes = 8 * 1024 * 1024;
  // Posts decoded and not yet handled, per account, so that no account's
  // flood crowds out another's; root's posts come by call, one at a time, so
  // only a burst of root's signals comes near its smaller byte bound.
  static constexpr std::size_t kMaxPendingPosts = 16384;
  static constexpr std::size_t kMaxPendingBytes = 32 * 1024 * 1024;
  static constexpr std::size_t kMaxPendingRootBytes = 8 * 1024 * 1024;
  // Accounts kept: the newest connections' (a few MB at most). A post from an
  // older one waits for the daemon's answer again.
  static constexpr std::size_t kMaxAccounts = 65536;

  struct Settings {
    // Names that reach no observer unless root posted them.
    std::set<std::string, std::less<>> rootOnlyNames{};
    // Limits other than kDefaultSizeLimit, by name.
    std::map<std::string, std::size_t, std::less<>> sizeLimits{};
    // Where handlers run: the connection's executor when not given.
    std::optional<asio::any_io_executor> observerExecutor{};
    // Takes posts as Post method calls at kObjectPath too.
    bool servePost = false;
  };

  // Builds on the connection from the thread that will use the centre, before
  // the connection's own thread (if any) starts.
  SdBusNotificationCenter(SdBusConnection& connection, Settings settings);
  explicit SdBusNotificationCenter(SdBusConnection& connection)
      : SdBusNotificationCenter(connection, Settings()) {}
  // Only while the connection's executor runs nothing else: on its own
  // thread after that has stopped, or on the one thread that runs both.
  ~SdBusNotificationCenter() override;

  // Observers' executor: the post goes out in order.
  void post(std::string_view name, std::optional<std::string> object = std::nullopt,
            std::optional<core::PlistDictionary> userInfo = std::nullopt) override;
  // Observers' executor. Once added, posts by others that arrive are seen.
  ObserverToken addObserver(std::string_view name, Handler handler) override;
  void removeObserver(ObserverToken token) override;

  // The Post method's handler, for its table.
  static int postCalled(sd_bus_message* call, void* userdata);

 private:
  struct CallRelease {
    void operator()(sd_bus_message* call) const;
  };
  // A post that arrived, decoded or not, until it is delivered or refused.
  struct Arrival {
    std::string sender;
    std::string name;
    // The call to answer; null for a signal.
    std::unique_ptr<sd_bus_message, CallRelease> call;
    std::variant<DistributedNotification, std::string> decoded;
    std::size_t bytes = 0;
  };
  struct Refusal {
    std::string kind;  // Of the account's budget.
    std::string what;  // The held-back lines, in the budget's summary.
    std::string line;
    const char* error;  // The caller's error name.
    bool warning;
  };
  // --- the connection's executor ---
  void receive(sd_bus_message* message, bool call);
  void decide(Arrival arrival, std::uint32_t uid);
  void refuse(Arrival& arrival, std::uint32_t uid, const Refusal& refusal);
  void relay(sd_bus_message* call);
  void hand(DistributedNotification notification, std::size_t bytes);
  void send(const DistributedNotification& notification);
  void watch(const std::string& name);
  void unwatch(const std::string& name);
  void answered(const std::string& uniqueName, std::uint32_t uid);
  void remember(const std::string& uniqueName, std::uint32_t uid);
  void forgetAccounts();
  void startSenderAccounts();
  std::size_t sizeLimit(std::string_view name) const;
  // Runs `work` on the connection's executor; waits for it when asked to.
  void onConnection(std::function<void()> work, bool wait);

  // --- the observers' executor ---
  void dispatch(const DistributedNotification& notification);

  SdBusConnection& connection_;
  Settings settings_;
  asio::any_io_executor observers_;
  bool sameExecutor_;
  core::CustomLogger logger_{"SdBusNotificationCenter"};
  core::Lifetime lifetime_;
  // Posts handed to the observers and not yet handled, shared by both executors.
  std::shared_ptr<PostBacklog> pending_ = std::make_shared<PostBacklog>(PostBacklog::Limits{
      kMaxPendingPosts, kMaxPendingBytes, kMaxPendingPosts, kMaxPendingRootBytes});

  // The connection's executor's.
  std::string ownName_;
  // Accounts by unique name. A daemon never gives a unique name twice, so an
  // answer holds after its connection left, until the daemon restarts.
  std::unordered_map<std::string, std::uint32_t> accounts_;
  std::deque<std::string> accountOrder_;  // Oldest first, for the bound.
  // Posts of senders not yet known, each sender's in arrival order.
  std::unordered_map<std::string, std::deque<Arrival>> waiting_;
  std::size_t waitingPosts_ = 0;
  std::size_t waitingBytes_ = 0;
  // Lines about other accounts' posts come out of each account's budget.
  core::LogBudget refusals_{logger_, connection_.clock(), connection_.executor()};
  std::unique_ptr<SdBusSenderAccounts> senderAccounts_;
  std::uint64_t deliveredPosts_ = 0;
  std::map<std::string, SdBusConnection::MatchId, std::less<>> matches_;
  SdBusConnection::ObjectId postObject_ = 0;

  // The observers' executor's.
  std::uint64_t nextToken_ = 1;
  std::map<std::string, std::map<std::uint64_t, Handler>, std::less<>> handlers_;
  std::map<std::uint64_t, std::string> tokenNames_;
};

}  // namespace velmo::platform::linux
