#include "backends/linux/SdBusServiceProperties.h"

#include <utility>

namespace velmo::platform::linux {
namespace {

// A call in flight: the bus frees it with its floating slot.
struct Pending {
  std::function<void(sd_bus_message*)> reply;
};

// Calls `member` on `destination` and hands the reply (or error) to `reply`,
// unless the object is gone by then.
void callAsync(sd_bus* bus, const char* destination, const char* path, const char* interface,
               const char* member, core::Lifetime::Token alive,
               std::function<void(sd_bus_message*)> reply, const char* argument) {
  if (!bus) return;
  auto* pending =
      new Pending{[alive = std::move(alive), reply = std::move(reply)](sd_bus_message* message) {
        if (*alive) reply(message);
      }};
  sd_bus_slot* slot = nullptr;
  const auto handler = [](sd_bus_message* message, void* userdata, sd_bus_error*) -> int {
    static_cast<Pending*>(userdata)->reply(message);
    return 0;
  };
  if (sd_bus_call_method_async(bus, &slot, destination, path, interface, member, handler, pending,
                               "s", argument) < 0) {
    delete pending;
    return;
  }
  sd_bus_slot_set_destroy_callback(slot,
                                   [](void* userdata) { delete static_cast<Pending*>(userdata); });
  sd_bus_slot_set_floating(slot, 1);
  sd_bus_slot_unref(slot);
}

}  // namespace

SdBusServiceProperties::SdBusServiceProperties(SdBusConnection& connection, std::string service,
                                               std::string path, std::string interface)
    : connection_(connection),
      service_(std::move(service)),
      path_(std::move(path)),
      interface_(std::move(interface)) {
  matches_.push_back(connection_.addMatch(
      "type='signal',sender='org.freedesktop.DBus',path='/org/freedesktop/DBus',"
      "interface='org.freedesktop.DBus',member='NameOwnerChanged',arg0='" +
          service_ + "'",
      [this](sd_bus_message* m) {
        const char *name = nullptr, *oldOwner = nullptr, *newOwner = nullptr;
        if (sd_bus_message_read(m, "sss", &name, &oldOwner, &newOwner) >= 0) {
          ownerIs(newOwner ? newOwner : "");
        }
      }));
  matches_.push_back(connection_.addMatch(
      "type='signal',path='" + path_ +
          "',interface='org.freedesktop.DBus.Properties',member='PropertiesChanged',arg0='" +
          interface_ + "'",
      [this](sd_bus_message* m) { handlePropertiesChanged(m); }));
  connection_.addConnectedHandler([this, alive = lifetime_.token()] {
    if (*alive) askForOwner();
  });
  askForOwner();
}

SdBusServiceProperties::~SdBusServiceProperties() {
  lifetime_.end();
  for (auto id : matches_) connection_.removeMatch(id);
}

void SdBusServiceProperties::askForOwner() {
  callAsync(
      connection_.bus(), "org.freedesktop.DBus", "/org/freedesktop/DBus", "org.freedesktop.DBus",
      "GetNameOwner", lifetime_.token(),
      [this](sd_bus_message* reply) {
        const char* owner = nullptr;
        // An error means nobody owns the name now.
        if (!sd_bus_message_is_method_error(reply, nullptr) &&
            sd_bus_message_read_basic(reply, 's', &owner) > 0 && owner) {
          ownerIs(owner);
        }
      },
      service_.c_str());
  connection_.watchPendingIO();
}

void SdBusServiceProperties::ownerIs(std::string owner) {
  if (owner == owner_) return;
  owner_ = std::move(owner);
  const bool was = available_;
  available_ = false;
  values_.clear();
  if (!owner_.empty()) readAll();
  if (was) changed();
}

void SdBusServiceProperties::readAll() {
  const std::string asked = owner_;
  callAsync(
      connection_.bus(), owner_.c_str(), path_.c_str(), "org.freedesktop.DBus.Properties", "GetAll",
      lifetime_.token(),
      [this, asked](sd_bus_message* reply) {
        if (asked != owner_ || sd_bus_message_is_method_error(reply, nullptr)) return;
        values_.clear();
        if (!readDictionary(reply)) return;
        available_ = true;
        changed();
      },
      interface_.c_str());
  connection_.watchPendingIO();
}

void SdBusServiceProperties::handlePropertiesChanged(sd_bus_message* message) {
  const char* sender = sd_bus_message_get_sender(message);
  if (!sender || owner_.empty() || owner_ != sender) {
    logger_.debug(std::string("Ignored PropertiesChanged of ") + path_ + " from " +
                  (sender ? sender : "an unknown sender") + ", which doesn't own " + service_);
    return;
  }
  const char* interface = nullptr;
  if (sd_bus_message_read_basic(message, 's', &interface) < 0 || !readDictionary(message)) return;
  // Invalidated names are read again with the rest.
  if (sd_bus_message_enter_container(message, 'a', "s") > 0) {
    const char* name = nullptr;
    bool invalidated = false;
    while (sd_bus_message_read_basic(message, 's', &name) > 0) invalidated = true;
    if (invalidated) readAll();
  }
  if (available_) changed();
}

bool SdBusServiceProperties::readDictionary(sd_bus_message* message) {
  if (sd_bus_message_enter_container(message, 'a', "{sv}") <= 0) return false;
  while (sd_bus_message_enter_container(message, 'e', "sv") > 0) {
    const char* name = nullptr;
    const char* type = nullptr;
    if (sd_bus_message_read_basic(message, 's', &name) <= 0 ||
        sd_bus_message_peek_type(message, nullptr, &type) <= 0 || !type) {
      return false;
    }
    const std::string signature = type;
    if (sd_bus_message_enter_container(message, 'v', signature.c_str()) <= 0) return false;
    int flag = 0;
    double real = 0;
    std::uint32_t unsignedValue = 0;
    if (signature == "b" && sd_bus_message_read_basic(message, 'b', &flag) > 0) {
      values_[name] = flag != 0;
    } else if (signature == "d" && sd_bus_message_read_basic(message, 'd', &real) > 0) {
      values_[name] = real;
    } else if (signature == "u" && sd_bus_message_read_basic(message, 'u', &unsignedValue) > 0) {
      values_[name] = static_cast<std::int64_t>(unsignedValue);
    } else {
      sd_bus_message_skip(message, signature.c_str());
    }
    sd_bus_message_exit_container(message);  // v
    sd_bus_message_exit_container(message);  // e
  }
  sd_bus_message_exit_container(message);  // a
  return true;
}

void SdBusServiceProperties::changed() {
  if (handler_) handler_();
}

}  // namespace velmo::platform::linux
