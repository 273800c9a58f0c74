// Stands in for the power and network services on a private bus: owns
// org.freedesktop.UPower and org.freedesktop.NetworkManager, shows
// OnBattery, the display device's Percentage and Metered as properties, and
// turns each line of standard input into a change with its PropertiesChanged:
//   battery <percent>   on battery at that charge
//   ac                  on mains power
//   metered <n>         NetworkManager's value: 0 unknown, 1 yes, 2 no, 3 guess-yes, 4 guess-no
// Prints "ready" once it owns both names; ends at the end of its input.
#include <poll.h>
#include <systemd/sd-bus.h>
#include <unistd.h>

#include <cstdint>
#include <iostream>
#include <sstream>
#include <string>

namespace {

struct State {
  int onBattery = 0;
  double percent = 100.0;
  std::uint32_t metered = 2;
};

State state;

int getBattery(sd_bus*, const char*, const char*, const char*, sd_bus_message* reply, void*,
               sd_bus_error*) {
  return sd_bus_message_append(reply, "b", state.onBattery);
}
int getPercent(sd_bus*, const char*, const char*, const char*, sd_bus_message* reply, void*,
               sd_bus_error*) {
  return sd_bus_message_append(reply, "d", state.percent);
}
int getMetered(sd_bus*, const char*, const char*, const char*, sd_bus_message* reply, void*,
               sd_bus_error*) {
  return sd_bus_message_append(reply, "u", state.metered);
}

const sd_bus_vtable kUPower[] = {
    SD_BUS_VTABLE_START(0),
    SD_BUS_PROPERTY("OnBattery", "b", getBattery, 0, SD_BUS_VTABLE_PROPERTY_EMITS_CHANGE),
    SD_BUS_VTABLE_END};
const sd_bus_vtable kDevice[] = {
    SD_BUS_VTABLE_START(0),
    SD_BUS_PROPERTY("Percentage", "d", getPercent, 0, SD_BUS_VTABLE_PROPERTY_EMITS_CHANGE),
    SD_BUS_VTABLE_END};
const sd_bus_vtable kNetwork[] = {
    SD_BUS_VTABLE_START(0),
    SD_BUS_PROPERTY("Metered", "u", getMetered, 0, SD_BUS_VTABLE_PROPERTY_EMITS_CHANGE),
    SD_BUS_VTABLE_END};

constexpr const char* kUPowerPath = "/org/freedesktop/UPower";
constexpr const char* kDevicePath = "/org/freedesktop/UPower/devices/DisplayDevice";
constexpr const char* kNetworkPath = "/org/freedesktop/NetworkManager";

void apply(sd_bus* bus, const std::string& line) {
  std::istringstream words(line);
  std::string command;
  words >> command;
  if (command == "battery") {
    state.onBattery = 1;
    words >> state.percent;
    sd_bus_emit_properties_changed(bus, kDevicePath, "org.freedesktop.UPower.Device", "Percentage",
                                   nullptr);
    sd_bus_emit_properties_changed(bus, kUPowerPath, "org.freedesktop.UPower", "OnBattery",
                                   nullptr);
  } else if (command == "ac") {
    state.onBattery = 0;
    sd_bus_emit_properties_changed(bus, kUPowerPath, "org.freedesktop.UPower", "OnBattery",
                                   nullptr);
  } else if (command == "metered") {
    words >> state.metered;
    sd_bus_emit_properties_changed(bus, kNetworkPath, "org.freedesktop.NetworkManager", "Metered",
                                   nullptr);
  } else {
    std::cerr << "velmo-fake-power: unknown command " << line << "\n";
  }
  sd_bus_flush(bus);
}

}  // namespace

int main() {
  sd_bus* bus = nullptr;
  if (sd_bus_open_system(&bus) < 0) {
    std::cerr << "velmo-fake-power: no system bus\n";
    return 69;
  }
  sd_bus_add_object_vtable(bus, nullptr, kUPowerPath, "org.freedesktop.UPower", kUPower, nullptr);
  sd_bus_add_object_vtable(bus, nullptr, kDevicePath, "org.freedesktop.UPower.Device", kDevice,
                           nullptr);
  sd_bus_add_object_vtable(bus, nullptr, kNetworkPath, "org.freedesktop.NetworkManager", kNetwork,
                           nullptr);
  if (sd_bus_request_name(bus, "org.freedesktop.UPower", 0) < 0 ||
      sd_bus_request_name(bus, "org.freedesktop.NetworkManager", 0) < 0) {
    std::cerr << "velmo-fake-power: name taken\n";
    return 69;
  }
  std::cout << "ready" << std::endl;
  std::string pending;
  while (true) {
    while (sd_bus_process(bus, nullptr) > 0) {
    }
    pollfd fds[] = {{STDIN_FILENO, POLLIN, 0}, {sd_bus_get_fd(bus), POLLIN, 0}};
    if (poll(fds, 2, 1000) < 0) break;
    if (fds[0].revents & (POLLIN | POLLHUP)) {
      char buffer[256];
      const ssize_t got = read(STDIN_FILENO, buffer, sizeof buffer);
      if (got <= 0) break;
      pending.append(buffer, static_cast<std::size_t>(got));
      for (auto end = pending.find('\n'); end != std::string::npos; end = pending.find('\n')) {
        apply(bus, pending.substr(0, end));
        pending.erase(0, end + 1);
      }
    }
  }
  sd_bus_flush_close_unref(bus);
  return 0;
}
