#include "backends/linux/SdBusAgentStatusReader.h"

#include <systemd/sd-bus.h>

#include <cstdint>
#include <limits>
#include <memory>
#include <string>
#include <utility>

#include "backends/linux/SdBusAgentStatusCodec.h"

namespace velmo::platform::linux {
namespace {

using Codec = SdBusAgentStatusCodec;
using Deadline = std::chrono::steady_clock::time_point;

constexpr const char* kDaemon = "org.freedesktop.DBus";
constexpr const char* kDaemonPath = "/org/freedesktop/DBus";

struct CloseBus {
  void operator()(sd_bus* bus) const { sd_bus_close_unref(bus); }
};
struct UnrefMessage {
  void operator()(sd_bus_message* message) const { sd_bus_message_unref(message); }
};
using Bus = std::unique_ptr<sd_bus, CloseBus>;
using Message = std::unique_ptr<sd_bus_message, UnrefMessage>;

std::uint64_t microsecondsLeft(Deadline deadline) {
  const auto left = std::chrono::duration_cast<std::chrono::microseconds>(
                        deadline - std::chrono::steady_clock::now())
                        .count();
  return left > 0 ? static_cast<std::uint64_t>(left) : 0;
}

// Sends the call and drives the connection, its start included, until the
// answer or the deadline. sd_bus_call would wait for the connection's start
// without that bound. Null for no answer or an error.
Message call(sd_bus* bus, sd_bus_message* message, Deadline deadline) {
  struct Answer {
    Message reply;
    bool done = false;
  } answer;
  auto answered = [](sd_bus_message* reply, void* userdata, sd_bus_error*) -> int {
    auto* into = static_cast<Answer*>(userdata);
    into->reply.reset(sd_bus_message_ref(reply));
    into->done = true;
    return 0;
  };
  std::uint64_t left = microsecondsLeft(deadline);
  sd_bus_slot* slot = nullptr;
  if (left == 0 || sd_bus_call_async(bus, &slot, message, answered, &answer, left) < 0) {
    return nullptr;
  }
  while (!answer.done) {
    const int processed = sd_bus_process(bus, nullptr);
    if (processed < 0) break;
    if (processed > 0) continue;
    left = microsecondsLeft(deadline);
    if (left == 0 || sd_bus_wait(bus, left) < 0) break;
  }
  sd_bus_slot_unref(slot);
  if (!answer.reply || sd_bus_message_is_method_error(answer.reply.get(), nullptr)) return nullptr;
  return std::move(answer.reply);
}

// Every call made here takes one string.
Message ask(sd_bus* bus, Deadline deadline, const char* destination, const char* path,
            const char* interface, const char* member, const char* argument) {
  sd_bus_message* created = nullptr;
  if (sd_bus_message_new_method_call(bus, &created, destination, path, interface, member) < 0) {
    return nullptr;
  }
  Message message(created);
  if (sd_bus_message_append_basic(created, 's', argument) < 0) return nullptr;
  return call(bus, created, deadline);
}

}  // namespace

std::optional<RunningAgent> SdBusAgentStatusReader::read() const {
  const Deadline deadline = std::chrono::steady_clock::now() + kTimeout;
  sd_bus* opened = nullptr;
  if (sd_bus_open_system(&opened) < 0) return std::nullopt;
  Bus bus(opened);

  const Message owner =
      ask(bus.get(), deadline, kDaemon, kDaemonPath, kDaemon, "GetNameOwner", Codec::kBusName);
  const char* unique = nullptr;
  if (!owner || sd_bus_message_read_basic(owner.get(), 's', &unique) <= 0 || !unique) {
    return std::nullopt;
  }
  // Both questions go to the owner's unique name, so that both answers are
  // about one agent even if the name moves in between.
  const std::string agentName = unique;
  const Message properties = ask(bus.get(), deadline, agentName.c_str(), Codec::kObjectPath,
                                 "org.freedesktop.DBus.Properties", "GetAll", Codec::kInterface);
  if (!properties) return std::nullopt;
  RunningAgent agent{Codec::read(properties.get()), std::nullopt};

  const Message pid = ask(bus.get(), deadline, kDaemon, kDaemonPath, kDaemon,
                          "GetConnectionUnixProcessID", agentName.c_str());
  std::uint32_t value = 0;
  if (pid && sd_bus_message_read_basic(pid.get(), 'u', &value) > 0 && value > 0 &&
      value <= static_cast<std::uint32_t>(std::numeric_limits<pid_t>::max())) {
    agent.pid = static_cast<pid_t>(value);
  }
  return agent;
}

}  // namespace velmo::platform::linux
