#include "platform/linux/SdBusNotificationCenter.h"

#include <systemd/sd-bus.h>

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

SdBusNotificationCenter::SdBusNotificationCenter(SdBusConnection& connection)
    : connection_(connection) {}

SdBusNotificationCenter::~SdBusNotificationCenter() {
  for (auto& [name, entry] : names_) connection_.removeMatch(entry.match);
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
    logger_.debug("Not connected to the bus; dropped post of " + notification.name);
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
  const std::uint64_t token = nextToken_++;
  auto found = names_.find(name);
  if (found == names_.end()) {
    const std::string rule = std::string("type='signal',path='") + kObjectPath + "',interface='" +
                             kInterface + "',member='" + kMember + "',arg0=" + quoted(name);
    NameEntry entry;
    entry.match = connection_.addMatch(rule, [this](sd_bus_message* m) { deliver(m); });
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

void SdBusNotificationCenter::deliver(sd_bus_message* message) {
  auto decoded = SdBusNotificationCodec::read(message);
  if (auto* reason = std::get_if<std::string>(&decoded)) {
    const char* sender = sd_bus_message_get_sender(message);
    logger_.error("Ignored a malformed notification from " +
                  std::string(sender ? sender : "an unknown sender") + ": " + *reason);
    return;
  }
  const auto& notification = std::get<DistributedNotification>(decoded);
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
