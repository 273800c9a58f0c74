#include "platform/linux/SdBusNotificationCenter.h"

#include <systemd/sd-bus.h>

#include <unistd.h>

#include <cstring>
#include <vector>

#include <asio/dispatch.hpp>

#include "platform/linux/SdBusNotificationCodec.h"

namespace velmo::platform::linux {
namespace {

// A D-Bus match rule quotes values in single quotes; a quote inside a value
// is written as '\'' (close, escaped quote, reopen).
std::string quoted(std::string_view value) {
  std::string result = "'";
  for (char c : value) {
    if (c == '\'') {
      result += "'\\''";
    } else {
      result += c;
    }
  }
  return result + "'";
}

}  // namespace

SdBusNotificationCenter::SdBusNotificationCenter(SdBusConnection& connection,
                                                 std::set<std::string, std::less<>> rootOnlyNames)
    : connection_(connection), rootOnlyNames_(std::move(rootOnlyNames)) {
  // The own connection's name is known without asking.
  auto own = [this, alive = alive_] {
    const char* name = nullptr;
    if (!*alive || sd_bus_get_unique_name(connection_.bus(), &name) < 0 || !name) return;
    forgetAccounts();
    remember(name, static_cast<std::uint32_t>(::geteuid()));
  };
  connection_.addConnectedHandler(own);
  if (connection_.isConnected()) own();
}

// Only a centre that observes needs to know senders; one that only posts
// starts no thread and opens no second connection.
void SdBusNotificationCenter::startSenderAccounts() {
  if (senderAccounts_) return;
  senderAccounts_ = std::make_unique<SdBusSenderAccounts>(
      connection_.executor(), connection_.clock(),
      [this](const std::string& name, std::uint32_t uid) { answered(name, uid); },
      [this] { forgetAccounts(); });
}

SdBusNotificationCenter::~SdBusNotificationCenter() {
  *alive_ = false;
  senderAccounts_.reset();
  for (auto& [name, entry] : names_) connection_.removeMatch(entry.match);
  for (auto& post : waiting_) sd_bus_message_unref(post.message);
}

// The daemon may have restarted: its unique names now name other connections.
// Posts that wait are asked for again.
void SdBusNotificationCenter::forgetAccounts() {
  accounts_.clear();
  accountOrder_.clear();
  asked_.clear();
  deliverWaiting();
}

void SdBusNotificationCenter::remember(const std::string& uniqueName, std::uint32_t uid) {
  // The first answer stands: a later one may come from a second question
  // asked after the connection left.
  if (!accounts_.emplace(uniqueName, uid).second) return;
  accountOrder_.push_back(uniqueName);
  if (accountOrder_.size() > kMaxAccounts) {
    accounts_.erase(accountOrder_.front());
    accountOrder_.pop_front();
  }
}

void SdBusNotificationCenter::answered(const std::string& uniqueName, std::uint32_t uid) {
  remember(uniqueName, uid);
  asked_.erase(uniqueName);
  deliverWaiting();
}

void SdBusNotificationCenter::receive(sd_bus_message* message) {
  const char* sender = sd_bus_message_get_sender(message);
  const std::string name = sender ? sender : "";
  if (waiting_.size() >= kMaxWaitingPosts) {
    refusals_.error("waiting", "notifications that found the queue full", [&] {
      return "Dropped a notification from " + (sender ? name : "an unknown sender") + ": " +
             std::to_string(kMaxWaitingPosts) + " posts already wait for their senders.";
    });
    return;
  }
  // Later posts wait behind one whose sender is not yet known, so that every
  // observer still sees arrival order.
  waiting_.push_back({sd_bus_message_ref(message), name});
  deliverWaiting();
}

// Delivers from the front while the senders are known; asks for the first
// one that isn't, and waits for its answer.
void SdBusNotificationCenter::deliverWaiting() {
  while (!waiting_.empty()) {
    WaitingPost& front = waiting_.front();
    std::uint32_t uid = DistributedNotification::kUnknownSender;
    if (!front.sender.empty()) {
      const auto known = accounts_.find(front.sender);
      if (known == accounts_.end()) {
        if (senderAccounts_ && asked_.insert(front.sender).second) {
          senderAccounts_->ask(front.sender);
        }
        return;
      }
      uid = known->second;
    }
    sd_bus_message* message = front.message;
    waiting_.pop_front();
    deliver(message, uid);
    sd_bus_message_unref(message);
  }
}

void SdBusNotificationCenter::post(std::string_view name, std::optional<std::string> object,
                                   std::optional<core::PlistDictionary> userInfo) {
  asio::dispatch(connection_.executor(), [this, notification = DistributedNotification{
                                                    std::string(name), std::move(object),
                                                    std::move(userInfo)}] { send(notification); });
}

void SdBusNotificationCenter::send(const DistributedNotification& notification) {
  sd_bus* bus = connection_.bus();
  if (!bus) {
    // This process's observers still hear it: a policy change during a bus
    // outage must not wait for the next one.
    logger_.debug("Not connected to the bus; " + notification.name + " reaches this process only");
    DistributedNotification own = notification;
    own.senderUid = ::geteuid();
    own.postNumber = ++deliveredPosts_;
    dispatch(own);
    return;
  }
  sd_bus_message* message = nullptr;
  int result = sd_bus_message_new_signal(bus, &message, kObjectPath, kInterface, kMember);
  if (result < 0) {
    logger_.error("Cannot create the signal for " + notification.name + ": " +
                  std::strerror(-result));
    return;
  }
  if (auto failure = SdBusNotificationCodec::write(message, notification)) {
    logger_.error("Cannot post " + notification.name + ": " + *failure);
  } else {
    connection_.send(message);
  }
  sd_bus_message_unref(message);
}

ObserverToken SdBusNotificationCenter::addObserver(std::string_view name, Handler handler) {
  startSenderAccounts();
  const std::uint64_t token = nextToken_++;
  auto found = names_.find(name);
  if (found == names_.end()) {
    const std::string rule = std::string("type='signal',path='") + kObjectPath + "',interface='" +
                             kInterface + "',member='" + kMember + "',arg0=" + quoted(name);
    NameEntry entry;
    entry.match = connection_.addMatch(rule, [this](sd_bus_message* m) { receive(m); });
    found = names_.emplace(std::string(name), std::move(entry)).first;
  }
  found->second.handlers.emplace(token, std::move(handler));
  tokenNames_.emplace(token, std::string(name));
  return {token};
}

void SdBusNotificationCenter::removeObserver(ObserverToken token) {
  auto named = tokenNames_.find(token.value);
  if (named == tokenNames_.end()) return;
  auto found = names_.find(named->second);
  tokenNames_.erase(named);
  if (found == names_.end()) return;
  found->second.handlers.erase(token.value);
  if (found->second.handlers.empty()) {
    connection_.removeMatch(found->second.match);
    names_.erase(found);
  }
}

void SdBusNotificationCenter::deliver(sd_bus_message* message, std::uint32_t senderUid) {
  auto decoded = SdBusNotificationCodec::read(message);
  if (auto* reason = std::get_if<std::string>(&decoded)) {
    // Counted per observed name; anything else under one kind, so that a
    // poster can't grow the budget's table with names of its own.
    std::string kind = "malformed";
    std::string what = "malformed notifications";
    const char* name = nullptr;
    if (sd_bus_message_rewind(message, 1) >= 0 &&
        sd_bus_message_read_basic(message, 's', &name) > 0 && names_.count(name)) {
      kind = name;
      what = "malformed " + kind + " notifications";
    }
    refusals_.error(kind, what, [&] {
      const char* sender = sd_bus_message_get_sender(message);
      return "Ignored a malformed notification from " +
             std::string(sender ? sender : "an unknown sender") + ": " + *reason;
    });
    return;
  }
  auto& notification = std::get<DistributedNotification>(decoded);
  notification.senderUid = senderUid;
  notification.postNumber = ++deliveredPosts_;
  if (senderUid != 0 && rootOnlyNames_.count(notification.name)) {
    const std::string account = senderUid == DistributedNotification::kUnknownSender
                                    ? std::string("an unknown account")
                                    : "uid " + std::to_string(senderUid);
    refusals_.warning("refused " + notification.name,
                      notification.name + " notifications from other accounts than root", [&] {
                        return "Ignored " + notification.name + " from " + account +
                               ": only root may post it.";
                      });
    return;
  }
  dispatch(notification);
}

void SdBusNotificationCenter::dispatch(const DistributedNotification& notification) {
  auto found = names_.find(notification.name);
  if (found == names_.end()) return;
  // Handlers may add or remove observers: walk a snapshot of the tokens and
  // skip those removed on the way.
  std::vector<std::uint64_t> tokens;
  for (const auto& [token, handler] : found->second.handlers) tokens.push_back(token);
  for (std::uint64_t token : tokens) {
    auto entry = names_.find(notification.name);
    if (entry == names_.end()) return;
    auto handler = entry->second.handlers.find(token);
    if (handler == entry->second.handlers.end()) continue;
    Handler call = handler->second;
    call(notification);
  }
}

}  // namespace velmo::platform::linux
