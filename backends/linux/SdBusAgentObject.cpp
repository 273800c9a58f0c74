#include "backends/linux/SdBusAgentObject.h"

#include <systemd/sd-bus.h>

#include <cstdint>
#include <cstring>
#include <functional>
#include <utility>
#include <vector>

#include <asio/dispatch.hpp>

#include "backends/linux/SdBusAgentStatusCodec.h"

namespace velmo::platform::linux {
namespace {

using Codec = SdBusAgentStatusCodec;

// RequestName's answers (the D-Bus protocol's numbers).
constexpr std::uint32_t kPrimaryOwner = 1;
constexpr std::uint32_t kInQueue = 2;
constexpr std::uint32_t kAlreadyOwner = 4;

int getProperty(sd_bus*, const char*, const char*, const char* property, sd_bus_message* reply,
                void* userdata, sd_bus_error*) {
  return Codec::append(reply, property, static_cast<SdBusAgentObject*>(userdata)->status());
}

const sd_bus_vtable* vtable() {
  static const std::vector<sd_bus_vtable> table = [] {
    std::vector<sd_bus_vtable> entries{SD_BUS_VTABLE_START(0)};
    for (const auto& property : Codec::properties()) {
      entries.push_back(SD_BUS_PROPERTY(property.name, property.signature, getProperty, 0,
                                        SD_BUS_VTABLE_PROPERTY_EMITS_CHANGE));
    }
    entries.push_back(SD_BUS_VTABLE_END);
    return entries;
  }();
  return table.data();
}

struct NameRequest {
  std::function<void(sd_bus_message*)> answered;
};

}  // namespace

SdBusAgentObject::SdBusAgentObject(SdBusConnection& connection) : connection_(connection) {
  object_ = connection_.addObject(Codec::kObjectPath, Codec::kInterface, vtable(), this);
  connection_.addConnectedHandler([this, alive = lifetime_.token()] {
    if (*alive) requestName();
  });
  requestName();
}

SdBusAgentObject::~SdBusAgentObject() {
  lifetime_.end();
  connection_.removeObject(object_);
  if (sd_bus* bus = connection_.bus()) {
    // Readers must not find the name with nothing behind it.
    sd_bus_release_name_async(bus, nullptr, Codec::kBusName, nullptr, nullptr);
    connection_.watchPendingIO();
  }
}

void SdBusAgentObject::publish(const AgentStatus& status) {
  // Served on the connection's executor, which may be a thread of its own.
  asio::dispatch(connection_.executor(), [this, alive = lifetime_.token(), status] {
    if (*alive) apply(status);
  });
}

void SdBusAgentObject::apply(const AgentStatus& status) {
  const std::vector<std::string> changed = Codec::changed(status_, status);
  status_ = status;
  sd_bus* bus = connection_.bus();
  if (changed.empty() || !bus) return;
  std::vector<char*> names;
  for (const auto& name : changed) names.push_back(const_cast<char*>(name.c_str()));
  names.push_back(nullptr);
  const int result =
      sd_bus_emit_properties_changed_strv(bus, Codec::kObjectPath, Codec::kInterface, names.data());
  if (result < 0) {
    logger_.error(std::string("Cannot announce the agent's changed status: ") +
                  std::strerror(-result));
    return;
  }
  connection_.watchPendingIO();
}

void SdBusAgentObject::requestName() {
  sd_bus* bus = connection_.bus();
  if (!bus) return;
  auto* request = new NameRequest{[this, alive = lifetime_.token()](sd_bus_message* reply) {
    if (*alive) nameAnswered(reply);
  }};
  auto callback = [](sd_bus_message* reply, void* userdata, sd_bus_error*) -> int {
    static_cast<NameRequest*>(userdata)->answered(reply);
    return 0;
  };
  // Queued behind another owner rather than refused, so that the name comes
  // to this agent the moment that one leaves. A floating slot: the bus frees
  // it, and the request with it, after the answer or with the connection.
  sd_bus_slot* slot = nullptr;
  const int result =
      sd_bus_request_name_async(bus, &slot, Codec::kBusName, SD_BUS_NAME_QUEUE, callback, request);
  if (result < 0) {
    delete request;
    nameRefused(std::strerror(-result));
    return;
  }
  sd_bus_slot_set_destroy_callback(
      slot, [](void* userdata) { delete static_cast<NameRequest*>(userdata); });
  sd_bus_slot_set_floating(slot, 1);
  sd_bus_slot_unref(slot);
  connection_.watchPendingIO();
}

void SdBusAgentObject::nameAnswered(sd_bus_message* reply) {
  // A connection that ends answers its pending calls with errors of its own;
  // the next connection asks again.
  if (sd_bus_is_open(sd_bus_message_get_bus(reply)) <= 0) return;
  if (const sd_bus_error* error = sd_bus_message_get_error(reply)) {
    nameRefused(error->message ? error->message : error->name ? error->name : "unknown error");
    return;
  }
  std::uint32_t answer = 0;
  if (sd_bus_message_read_basic(reply, 'u', &answer) <= 0) {
    nameRefused("unreadable answer from the bus");
  } else if (answer == kPrimaryOwner || answer == kAlreadyOwner) {
    logger_.debug(std::string("Owns ") + Codec::kBusName);
    warned_ = false;
  } else if (answer == kInQueue) {
    nameRefused("another program has it; this agent takes it when that one leaves");
  } else {
    nameRefused("answer " + std::to_string(answer));
  }
}

void SdBusAgentObject::nameRefused(const std::string& reason) {
  if (std::exchange(warned_, true)) return;
  logger_.warning(std::string("Cannot own ") + Codec::kBusName + ": " + reason);
}

}  // namespace velmo::platform::linux
