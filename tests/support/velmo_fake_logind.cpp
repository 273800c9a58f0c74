// Stands in for logind on a private bus: owns org.freedesktop.login1 and turns
// each line of standard input into its signal.
//   sleep  PrepareForSleep(true)      wake  PrepareForSleep(false)
// Prints "ready" once it owns the name; ends at the end of its input.
#include <systemd/sd-bus.h>

#include <iostream>
#include <string>

int main() {
  sd_bus* bus = nullptr;
  if (sd_bus_open_system(&bus) < 0) {
    std::cerr << "velmo-fake-logind: no system bus\n";
    return 69;
  }
  if (sd_bus_request_name(bus, "org.freedesktop.login1", 0) < 0) {
    std::cerr << "velmo-fake-logind: name taken\n";
    return 69;
  }
  std::cout << "ready" << std::endl;
  std::string line;
  while (std::getline(std::cin, line)) {
    if (line != "sleep" && line != "wake") {
      std::cerr << "velmo-fake-logind: unknown command " << line << "\n";
      continue;
    }
    sd_bus_emit_signal(bus, "/org/freedesktop/login1", "org.freedesktop.login1.Manager",
                       "PrepareForSleep", "b", line == "sleep" ? 1 : 0);
    sd_bus_flush(bus);
  }
  sd_bus_flush_close_unref(bus);
  return 0;
}
