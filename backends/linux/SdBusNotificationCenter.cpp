#include "backends/linux/SdBusNotificationCenter.h"

#include <systemd/sd-bus.h>

#include <unistd.h>

#include <cstring>
#include <future>
#include <vector>

#include <asio/post.hpp>

#include "backends/linux/SdBusNotificationCodec.h"

namespace velmo::platform::linux {
namespace {

constexpr const char* kAccessDenied = "org.freedesktop.DBus.Error.AccessDenied";
constexpr const char* kInvalidArgs = "org.freedesktop.DBus.Error.InvalidArgs";
constexpr const char* kLimitsExceeded = "org.freedesktop.DBus.Error.LimitsExceeded";
// Bus names are at most this long; a longer first string names nothing.
constexpr std::size_t kLongestName = 255;

const sd_bus_vtable kPostTable[] = {SD_BUS_VTABLE_START(0),
                                    // Anyone may call it: who may post what is decided per post.
                                    SD_BUS_METHOD(
                                        "Post", "sasa{sv}", "",
                                        [](sd_bus_message* call, void* userdata, sd_bus_error*) {
                                          return SdBusNotificationCenter::postCalled(call,
                                                                                     userdata);
                                        },
                                        SD_BUS_VTABLE_UNPRIVILEGED),
                                    SD_BUS_VTABLE_END};

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

// The post's name, read ahead of the body, or "" when there is none to read.
std::string postName(sd_bus_message* message) {
  const char* name = nullptr;
  std::string result;
  if (sd_bus_message_rewind(message, 1) >= 0 &&
      sd_bus_message_read_basic(message, 's', &name) > 0 && name &&
      std::strlen(name) <= kLongestName) {
    result = name;
  }
  sd_bus_message_rewind(message, 1);
  return result;
}

std::string describeAccount(std::uint32_t uid) {
  if (uid == DistributedNotification::kUnknownSender) return "an unknown account";
  return "uid " + std::to_string(uid);
}

}  // namespace

void SdBusNotificationCenter::CallRelease::operator()(sd_bus_message* call) const {
  sd_bus_message_unref(call);
}

SdBusNotificationCenter::SdBusNotificationCenter(SdBusConnection& connection, Settings settings)
    : connection_(connection),
      settings_(std::move(settings)),
      observers_(settings_.observerExecutor.value_or(connection.executor())),
      sameExecutor_(observers_ == connection.executor()) {
  // A new connection has a new name; the daemon may have restarted too.
  auto connected = [this, alive = lifetime_.token()] {
    const char* name = nullptr;
    if (!*alive || sd_bus_get_unique_name(connection_.bus(), &name) < 0 || !name) return;
    ownName_ = name;
    forgetAccounts();
  };
  connection_.addConnectedHandler(connected);
  if (connection_.isConnected()) connected();
  if (settings_.servePost) {
    postObject_ = connection_.addObject(kObjectPath, kInterface, kPostTable, this);
  }
}

SdBusNotificationCenter::~SdBusNotificationCenter() {
  lifetime_.end();
  senderAccounts_.reset();
  for (auto& [name, match] : matches_) connection_.removeMatch(match);
  if (postObject_) connection_.removeObject(postObject_);
}

void SdBusNotificationCenter::onConnection(std::function<void()> work, bool wait) {
  if (sameExecutor_) {
    work();
  } else if (!wait) {
    asio::post(connection_.executor(), [alive = lifetime_.token(), work = std::move(work)] {
      if (*alive) work();
    });
  } else {
    std::promise<void> done;
    asio::post(connection_.executor(), [&] {
      work();
      done.set_value();
    });
    done.get_future().wait();
  }
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

// The daemon may have restarted: its unique names now name other connections.
// The senders whose posts wait are asked for again.
void SdBusNotificationCenter::forgetAccounts() {
  accounts_.clear();
  accountOrder_.clear();
  if (!senderAccounts_) return;
  for (const auto& [sender, arrivals] : waiting_) senderAccounts_->ask(sender);
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
  auto found = waiting_.find(uniqueName);
  if (found == waiting_.end()) return;
  std::deque<Arrival> arrivals = std::move(found->second);
  waiting_.erase(found);
  for (Arrival& arrival : arrivals) {
    --waitingPosts_;
    waitingBytes_ -= arrival.bytes;
    decide(std::move(arrival), uid);
  }
}

std::size_t SdBusNotificationCenter::sizeLimit(std::string_view name) const {
  const auto found = settings_.sizeLimits.find(name);
  return found == settings_.sizeLimits.end() ? kDefaultSizeLimit : found->second;
}

int SdBusNotificationCenter::postCalled(sd_bus_message* call, void* userdata) {
  static_cast<SdBusNotificationCenter*>(userdata)->receive(call, true);
  return 1;  // Answered once the sender's account is known.
}

// Decoded at once, within the name's limit, so that what waits is small and
// no observer ever parses more than that.
void SdBusNotificationCenter::receive(sd_bus_message* message, bool call) {
  const char* senderName = sd_bus_message_get_sender(message);
  Arrival arrival;
  arrival.sender = senderName ? senderName : "";
  // This process's own posts reached its observers when they were made.
  if (!call && !arrival.sender.empty() && arrival.sender == ownName_) return;
  arrival.name = postName(message);
  if (call) arrival.call.reset(sd_bus_message_ref(message));
  arrival.decoded = SdBusNotificationCodec::read(message, sizeLimit(arrival.name), &arrival.bytes);
  if (arrival.sender.empty()) {
    decide(std::move(arrival), DistributedNotification::kUnknownSender);
    return;
  }
  if (const auto known = accounts_.find(arrival.sender); known != accounts_.end()) {
    decide(std::move(arrival), known->second);
    return;
  }
  if (waitingPosts_ >= kMaxWaitingPosts || waitingBytes_ + arrival.bytes > kMaxWaitingBytes) {
    refuse(arrival, DistributedNotification::kUnknownSender,
           {"waiting", "notifications that found the queue full",
            "Dropped a notification from " + arrival.sender + ": " + std::to_string(waitingPosts_) +
                " posts already wait for their senders.",
            kLimitsExceeded, false});
    return;
  }
  ++waitingPosts_;
  waitingBytes_ += arrival.bytes;
  auto [queue, first] = waiting_.try_emplace(arrival.sender);
  queue->second.push_back(std::move(arrival));
  if (first) {
    startSenderAccounts();
    senderAccounts_->ask(queue->first);
  }
}

void SdBusNotificationCenter::decide(Arrival arrival, std::uint32_t uid) {
  const std::string account = describeAccount(uid);
  if (auto* reason = std::get_if<std::string>(&arrival.decoded)) {
    // Counted per observed name; anything else under one kind, so that a
    // poster can't grow the budget's table with names of its own.
    const std::string name = matches_.count(arrival.name) ? arrival.name + " " : "";
    refuse(arrival, uid,
           {"malformed " + name, "malformed " + name + "notifications from " + account,
            "Ignored a malformed notification from " + arrival.sender + " (" + account +
                "): " + *reason,
            kInvalidArgs, false});
    return;
  }
  auto& notification = std::get<DistributedNotification>(arrival.decoded);
  notification.senderUid = uid;
  if (uid != 0 && settings_.rootOnlyNames.count(notification.name)) {
    refuse(arrival, uid,
           {"refused " + notification.name, notification.name + " notifications from " + account,
            "Ignored " + notification.name + " from " + account + ": only root may post it.",
            kAccessDenied, true});
    return;
  }
  if (const auto waiting = pending_->admit(uid, arrival.bytes)) {
    refuse(arrival, uid,
           {"pending", "notifications from " + account + " that found the queue full",
            "Dropped " + notification.name + " from " + account + ": " + std::to_string(*waiting) +
                " posts already wait to be handled.",
            kLimitsExceeded, false});
    return;
  }
  if (arrival.call) {
    if (uid == 0) relay(arrival.call.get());
    sd_bus_reply_method_return(arrival.call.get(), "");
    connection_.watchPendingIO();
  }
  hand(std::move(notification), arrival.bytes);
}

void SdBusNotificationCenter::refuse(Arrival& arrival, std::uint32_t uid, const Refusal& refusal) {
  // Each account's lines come out of its own budget: no other account can
  // hide root's, nor one of them all the others'.
  const std::string kind = describeAccount(uid) + " " + refusal.kind;
  auto line = [&] { return refusal.line; };
  if (refusal.warning) {
    refusals_.warning(kind, refusal.what, line);
  } else {
    refusals_.error(kind, refusal.what, line);
  }
  if (arrival.call) {
    sd_bus_reply_method_errorf(arrival.call.get(), refusal.error, "%s", refusal.line.c_str());
    connection_.watchPendingIO();
  }
}

// Root's posts taken as calls go on to the other listeners as the signal.
void SdBusNotificationCenter::relay(sd_bus_message* call) {
  sd_bus* bus = connection_.bus();
  sd_bus_message* signal = nullptr;
  if (!bus || sd_bus_message_new_signal(bus, &signal, kObjectPath, kInterface, kMember) < 0) return;
  if (sd_bus_message_rewind(call, 1) >= 0 && sd_bus_message_copy(signal, call, 1) >= 0) {
    connection_.send(signal);
  }
  sd_bus_message_unref(signal);
}

// Counted in by decide(), or, for this process's own posts, here.
void SdBusNotificationCenter::hand(DistributedNotification notification, std::size_t bytes) {
  notification.postNumber = ++deliveredPosts_;
  asio::post(observers_, [this, alive = lifetime_.token(), pending = pending_, bytes,
                          notification = std::move(notification)] {
    pending->release(notification.senderUid, bytes);
    if (*alive) dispatch(notification);
  });
}

void SdBusNotificationCenter::post(std::string_view name, std::optional<std::string> object,
                                   std::optional<core::PlistDictionary> userInfo) {
  asio::post(connection_.executor(),
             [this, alive = lifetime_.token(),
              notification = DistributedNotification{std::string(name), std::move(object),
                                                     std::move(userInfo)}] {
               if (*alive) send(notification);
             });
}

void SdBusNotificationCenter::send(const DistributedNotification& notification) {
  DistributedNotification own = notification;
  own.senderUid = ::geteuid();
  sd_bus* bus = connection_.bus();
  sd_bus_message* message = nullptr;
  if (!bus) {
    logger_.debug("Not connected to the bus; " + notification.name + " reaches this process only");
  } else if (const int result =
                 sd_bus_message_new_signal(bus, &message, kObjectPath, kInterface, kMember);
             result < 0) {
    logger_.error("Cannot create the signal for " + notification.name + ": " +
                  std::strerror(-result));
    return;
  } else if (auto failure = SdBusNotificationCodec::write(message, notification)) {
    logger_.error("Cannot post " + notification.name + ": " + *failure);
    sd_bus_message_unref(message);
    return;
  }
  std::size_t bytes = 0;
  if (message && connection_.send(message) && sd_bus_message_rewind(message, 1) >= 0) {
    // This process's observers get what all others get, read back from the
    // sealed message (a date, for one, becomes its text).
    auto sent = SdBusNotificationCodec::read(message, SIZE_MAX, &bytes);
    if (auto* decoded = std::get_if<DistributedNotification>(&sent)) {
      own = std::move(*decoded);
      own.senderUid = ::geteuid();
    }
  }
  if (message) sd_bus_message_unref(message);
  // The process's own posts are counted, never refused.
  (void)pending_->admit(own.senderUid, bytes, false);
  hand(std::move(own), bytes);
}

void SdBusNotificationCenter::watch(const std::string& name) {
  startSenderAccounts();
  if (matches_.count(name)) return;
  const std::string rule = std::string("type='signal',path='") + kObjectPath + "',interface='" +
                           kInterface + "',member='" + kMember + "',arg0=" + quoted(name);
  matches_.emplace(name,
                   connection_.addMatch(rule, [this](sd_bus_message* m) { receive(m, false); }));
}

void SdBusNotificationCenter::unwatch(const std::string& name) {
  const auto found = matches_.find(name);
  if (found == matches_.end()) return;
  connection_.removeMatch(found->second);
  matches_.erase(found);
}

ObserverToken SdBusNotificationCenter::addObserver(std::string_view name, Handler handler) {
  const std::uint64_t token = nextToken_++;
  auto [entry, first] = handlers_.try_emplace(std::string(name));
  entry->second.emplace(token, std::move(handler));
  tokenNames_.emplace(token, std::string(name));
  if (first) onConnection([this, name = std::string(name)] { watch(name); }, true);
  return {token};
}

void SdBusNotificationCenter::removeObserver(ObserverToken token) {
  auto named = tokenNames_.find(token.value);
  if (named == tokenNames_.end()) return;
  const std::string name = named->second;
  tokenNames_.erase(named);
  auto found = handlers_.find(name);
  if (found == handlers_.end()) return;
  found->second.erase(token.value);
  if (found->second.empty()) {
    handlers_.erase(found);
    onConnection([this, name] { unwatch(name); }, false);
  }
}

void SdBusNotificationCenter::dispatch(const DistributedNotification& notification) {
  auto found = handlers_.find(notification.name);
  if (found == handlers_.end()) return;
  // Handlers may add or remove observers: walk a snapshot of the tokens and
  // skip those removed on the way.
  std::vector<std::uint64_t> tokens;
  for (const auto& [token, handler] : found->second) tokens.push_back(token);
  for (std::uint64_t token : tokens) {
    auto entry = handlers_.find(notification.name);
    if (entry == handlers_.end()) return;
    auto handler = entry->second.find(token);
    if (handler == entry->second.end()) continue;
    Handler call = handler->second;
    call(notification);
  }
}

}  // namespace velmo::platform::linux
