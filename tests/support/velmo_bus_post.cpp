// Posts notifications from a process of its own, through the agent's bus code.
//   velmo-bus-post NAME COUNT [OBJECT-PREFIX [OBJECT-SUFFIX [CYCLE]]]
// Post i carries the object "<prefix><n><suffix>" (no object without a prefix),
// where n is i, or i modulo CYCLE when one is given, and
// the user info {"index": i, "text": "grüße", "flags": [true, 2.5],
// "names": ["a", "b"], "nested": {"data": <bytes 0 1 255>}}.
//   velmo-bus-post --exact NAME [OBJECT [KEY=VALUE...]]
// One post with exactly that object (none when it is empty) and string values,
// as the end-to-end scenarios' root posts: a call of the agent's Post method,
// which the agent answers once it has taken the post; an error answer is
// printed and the exit status is 1. With no agent on the bus, the signal.
//   velmo-bus-post --call NAME COUNT ...
// As the first form, each post a call of the Post method, one after another.
#include <algorithm>
#include <chrono>
#include <cstdlib>
#include <iostream>
#include <optional>
#include <string>
#include <thread>

#include <asio/io_context.hpp>

#include <systemd/sd-bus.h>

#include "backends/linux/SdBusAgentStatusCodec.h"
#include "backends/linux/SdBusConnection.h"
#include "backends/linux/SdBusNotificationCenter.h"
#include "backends/linux/SdBusNotificationCodec.h"
#include "backends/linux/SystemClock.h"

namespace {

using namespace velmo::platform::linux;

enum class Called { taken, refused, noAgent };

// Posts through the agent's Post method and waits for its answer.
Called callPost(sd_bus* bus, const velmo::platform::DistributedNotification& notification) {
  sd_bus_message* call = nullptr;
  sd_bus_message* reply = nullptr;
  sd_bus_error error = SD_BUS_ERROR_NULL;
  Called result = Called::refused;
  if (sd_bus_message_new_method_call(
          bus, &call, SdBusAgentStatusCodec::kBusName, SdBusNotificationCenter::kObjectPath,
          SdBusNotificationCenter::kInterface, SdBusNotificationCenter::kMember) >= 0 &&
      !SdBusNotificationCodec::write(call, notification)) {
    if (sd_bus_call(bus, call, 0, &error, &reply) >= 0) {
      result = Called::taken;
    } else if (sd_bus_error_has_name(&error, SD_BUS_ERROR_SERVICE_UNKNOWN) ||
               sd_bus_error_has_name(&error, SD_BUS_ERROR_NAME_HAS_NO_OWNER)) {
      result = Called::noAgent;
    } else {
      std::cerr << (error.name ? error.name : "error") << ": "
                << (error.message ? error.message : "") << "\n";
    }
  }
  sd_bus_error_free(&error);
  sd_bus_message_unref(reply);
  sd_bus_message_unref(call);
  return result;
}

}  // namespace

int main(int argc, char** argv) {
  using namespace velmo;
  const bool exact = argc > 1 && std::string(argv[1]) == "--exact";
  const bool calls = argc > 1 && std::string(argv[1]) == "--call";
  if (calls) {
    --argc;
    ++argv;
  }
  if (exact && argc < 3) {
    std::cerr << "usage: velmo-bus-post --exact NAME [OBJECT [KEY=VALUE...]]\n";
    return 64;
  }
  if (!exact && argc < 3) {
    std::cerr << "usage: velmo-bus-post NAME COUNT [OBJECT-PREFIX [OBJECT-SUFFIX [CYCLE]]]\n";
    return 64;
  }
  const std::string name = argv[1];
  const long count = std::atol(argv[2]);
  const char* prefix = argc > 3 ? argv[3] : nullptr;
  const std::string suffix = argc > 4 ? argv[4] : "";
  const long cycle = argc > 5 ? std::max(1L, std::atol(argv[5])) : 0;

  asio::io_context context;
  platform::linux::SystemClock clock;
  platform::linux::SdBusConnection connection(context.get_executor(), clock);
  connection.start();
  if (!connection.isConnected()) return 69;
  platform::linux::SdBusNotificationCenter center(connection);
  if (exact) {
    std::optional<std::string> object;
    if (argc > 3 && *argv[3]) object = argv[3];
    std::optional<core::PlistDictionary> info;
    for (int i = 4; i < argc; ++i) {
      const std::string pair = argv[i];
      const auto equals = pair.find('=');
      if (equals == std::string::npos) return 64;
      if (!info) info.emplace();
      info->emplace(pair.substr(0, equals), core::PlistValue(pair.substr(equals + 1)));
    }
    const platform::DistributedNotification notification{argv[2], object, info};
    const Called called = callPost(connection.bus(), notification);
    if (called != Called::noAgent) return called == Called::taken ? 0 : 1;
    center.post(argv[2], object, info);
    context.poll();
    connection.flush();
    std::this_thread::sleep_for(std::chrono::milliseconds(100));
    return 0;
  }
  for (long i = 0; i < count; ++i) {
    core::PlistDictionary info{
        {"index", core::PlistValue(std::int64_t{i})},
        {"text", core::PlistValue("grüße")},
        {"flags", core::PlistValue(core::PlistArray{true, 2.5})},
        {"names", core::PlistValue(core::PlistArray{"a", "b"})},
        {"nested", core::PlistValue(core::PlistDictionary{
                       {"data", core::PlistValue(core::PlistData{0, 1, 255})}})}};
    std::optional<std::string> object;
    if (prefix) object = prefix + std::to_string(cycle ? i % cycle : i) + suffix;
    if (!calls) {
      center.post(name, object, info);
    } else if (callPost(connection.bus(), {name, object, info}) != Called::taken) {
      return 1;
    }
  }
  context.poll();
  connection.flush();
  // Stays connected a moment, as the siblings (a long-lived companion, a tool
  // in the middle of a run) do: the bus daemon can tell a receiver only the
  // account of a connection that is still there when it asks.
  std::this_thread::sleep_for(std::chrono::milliseconds(100));
  return 0;
}
