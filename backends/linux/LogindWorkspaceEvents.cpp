#include "backends/linux/LogindWorkspaceEvents.h"

#include <systemd/sd-bus.h>

#include <vector>

namespace velmo::platform::linux {
namespace {

std::string managerRule(const char* member) {
  return std::string("type='signal',sender='") + LogindWorkspaceEvents::kLogindName +
         "',path='/org/freedesktop/login1',interface='org.freedesktop.login1.Manager',member='" +
         member + "'";
}

struct OwnerQuery {
  LogindWorkspaceEvents* events;
  core::Lifetime::Token alive;
};

}  // namespace

LogindWorkspaceEvents::LogindWorkspaceEvents(SdBusConnection& connection)
    : connection_(connection) {
  matches_.push_back(connection_.addMatch(managerRule("PrepareForSleep"),
                                          [this](sd_bus_message* m) { handlePrepare(m, false); }));
  matches_.push_back(connection_.addMatch(managerRule("PrepareForShutdown"),
                                          [this](sd_bus_message* m) { handlePrepare(m, true); }));
  matches_.push_back(connection_.addMatch(
      std::string("type='signal',sender='org.freedesktop.DBus',path='/org/freedesktop/DBus',"
                  "interface='org.freedesktop.DBus',member='NameOwnerChanged',arg0='") +
          kLogindName + "'",
      [this](sd_bus_message* m) { handleOwnerChanged(m); }));
  connection_.addConnectedHandler([this, alive = lifetime_.token()] {
    if (*alive) askForOwner();
  });
  askForOwner();
}

LogindWorkspaceEvents::~LogindWorkspaceEvents() {
  lifetime_.end();
  for (auto id : matches_) connection_.removeMatch(id);
}

ObserverToken LogindWorkspaceEvents::addObserver(Handler handler) {
  const std::uint64_t token = nextToken_++;
  handlers_.emplace(token, std::move(handler));
  return {token};
}

void LogindWorkspaceEvents::removeObserver(ObserverToken token) { handlers_.erase(token.value); }

void LogindWorkspaceEvents::askForOwner() {
  sd_bus* bus = connection_.bus();
  if (!bus) return;
  auto* query = new OwnerQuery{this, lifetime_.token()};
  auto reply = [](sd_bus_message* message, void* userdata, sd_bus_error*) -> int {
    auto* query = static_cast<OwnerQuery*>(userdata);
    if (!*query->alive) return 0;
    const char* owner = nullptr;
    // An error reply means nobody owns the name now.
    if (!sd_bus_message_is_method_error(message, nullptr) &&
        sd_bus_message_read_basic(message, 's', &owner) > 0 && owner) {
      query->events->owner_ = owner;
    }
    return 0;
  };
  // A floating slot: the bus frees it after the reply or with the connection,
  // and the query goes with it.
  sd_bus_slot* slot = nullptr;
  const int result = sd_bus_call_method_async(bus, &slot, "org.freedesktop.DBus",
                                              "/org/freedesktop/DBus", "org.freedesktop.DBus",
                                              "GetNameOwner", reply, query, "s", kLogindName);
  if (result < 0) {
    delete query;
    return;
  }
  sd_bus_slot_set_destroy_callback(
      slot, [](void* userdata) { delete static_cast<OwnerQuery*>(userdata); });
  sd_bus_slot_set_floating(slot, 1);
  sd_bus_slot_unref(slot);
}

void LogindWorkspaceEvents::handleOwnerChanged(sd_bus_message* message) {
  const char* name = nullptr;
  const char* oldOwner = nullptr;
  const char* newOwner = nullptr;
  if (sd_bus_message_read(message, "sss", &name, &oldOwner, &newOwner) < 0) return;
  owner_ = newOwner ? newOwner : "";
}

void LogindWorkspaceEvents::handlePrepare(sd_bus_message* message, bool shutdown) {
  const char* sender = sd_bus_message_get_sender(message);
  const char* member = sd_bus_message_get_member(message);
  if (!sender || owner_.empty() || owner_ != sender) {
    logger_.debug(std::string("Ignored ") + (member ? member : "a signal") + " from " +
                  (sender ? sender : "an unknown sender") + ", which doesn't own " + kLogindName);
    return;
  }
  int active = 0;
  if (sd_bus_message_read_basic(message, 'b', &active) < 0) {
    logger_.error(std::string("Ignored ") + (member ? member : "a signal") +
                  " without a boolean argument");
    return;
  }
  WorkspaceEvent event;
  if (shutdown) {
    event = active ? WorkspaceEvent::willPowerOff : WorkspaceEvent::powerOffCancelled;
  } else {
    event = active ? WorkspaceEvent::willSleep : WorkspaceEvent::didWake;
  }
  std::vector<std::uint64_t> tokens;
  for (const auto& [token, handler] : handlers_) tokens.push_back(token);
  for (auto token : tokens) {
    auto found = handlers_.find(token);
    if (found == handlers_.end()) continue;
    Handler call = found->second;
    call(event);
  }
}

}  // namespace velmo::platform::linux
