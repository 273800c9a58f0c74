// Floods the agent's bus with raw sd-bus, as a hostile account or as root.
//   velmo-bus-flood big NAME BYTES COUNT
//     COUNT posts of NAME from one connection, each with an object of BYTES
//     bytes. Prints "sent N of COUNT", and why the connection broke if the bus
//     daemon closed it (it does for a post above its size limit).
//   velmo-bus-flood fds NAME COUNT
//     COUNT posts of NAME, each from a fresh connection and carrying 16 file
//     descriptors as "h" values of its user info. Prints "sent N of COUNT".
//   velmo-bus-flood churn NAME COUNT
//     COUNT connections that each post NAME once and close at once.
//   velmo-bus-flood root COUNT [INTERVAL-MS]
//     COUNT Post method calls to the agent, one at a time from one connection,
//     every INTERVAL-MS (50 by default): even calls add the item "root<k>"
//     (addItemsToUIControllerQueue), odd ones report "done<k>" installed
//     (didPerformInstall). One line per call:
//       <index> <short name> <sent> <replied> <ok | error name>
//     with epoch seconds to the nanosecond; a call unanswered for 10 s fails.
// Exits 69 when the bus can't be reached at all.
#include <systemd/sd-bus.h>

#include <fcntl.h>
#include <unistd.h>

#include <cerrno>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <ctime>
#include <string>
#include <thread>

namespace {

constexpr const char* kPath = "/com/marvenith/velmo";
constexpr const char* kInterface = "com.marvenith.velmo.Notifications";
constexpr int kFdsPerPost = 16;

sd_bus* openBus() {
  sd_bus* bus = nullptr;
  if (sd_bus_open_system(&bus) < 0) return nullptr;
  return bus;
}

using Info = int (*)(sd_bus_message*);
int none(sd_bus_message*) { return 0; }

// A Post body: the name, the object (none when null), and the user info's
// entries that `info` appends.
int fill(sd_bus_message* m, const std::string& name, const std::string* object, Info info) {
  int r = sd_bus_message_append(m, "s", name.c_str());
  if (r >= 0) r = sd_bus_message_append(m, "as", object ? 1 : 0, object ? object->c_str() : "");
  if (r >= 0) r = sd_bus_message_open_container(m, 'a', "{sv}");
  if (r >= 0) r = info(m);
  if (r >= 0) r = sd_bus_message_close_container(m);
  return r;
}

int emit(sd_bus* bus, const std::string& name, const std::string* object, Info info = none) {
  sd_bus_message* m = nullptr;
  int r = sd_bus_message_new_signal(bus, &m, kPath, kInterface, "Post");
  if (r >= 0) r = fill(m, name, object, info);
  if (r >= 0) r = sd_bus_send(bus, m, nullptr);
  sd_bus_message_unref(m);
  return r;
}

// The message holds duplicates of this one descriptor.
int fds(sd_bus_message* m) {
  static const int fd = ::open("/dev/null", O_RDONLY | O_CLOEXEC);
  if (fd < 0) return -EBADF;
  int r = 0;
  for (int i = 0; i < kFdsPerPost && r >= 0; ++i) {
    r = sd_bus_message_append(m, "{sv}", ("fd" + std::to_string(i)).c_str(), "h", fd);
  }
  return r;
}

// One post per fresh connection, counted once written to the bus daemon.
int oneShot(int argc, char** argv, Info info) {
  if (argc != 4) return 64;
  const std::string name = argv[2];
  const long count = std::atol(argv[3]);
  long sent = 0;
  for (long i = 0; i < count; ++i) {
    sd_bus* bus = openBus();
    if (!bus) continue;
    if (emit(bus, name, nullptr, info) >= 0 && sd_bus_flush(bus) >= 0) ++sent;
    sd_bus_flush_close_unref(bus);
  }
  std::printf("sent %ld of %ld\n", sent, count);
  return sent ? 0 : 69;
}

int big(int argc, char** argv) {
  if (argc != 5) return 64;
  const std::string name = argv[2];
  const std::string object(std::strtoul(argv[3], nullptr, 10), 'x');
  const long count = std::atol(argv[4]);
  sd_bus* bus = openBus();
  if (!bus) return 69;
  long sent = 0;
  int r = 0;
  // Flushed one at a time: a queue of them would hold COUNT times BYTES here.
  for (; sent < count; ++sent) {
    if ((r = emit(bus, name, &object)) < 0 || (r = sd_bus_flush(bus)) < 0) break;
  }
  std::printf("sent %ld of %ld%s%s\n", sent, count, r < 0 ? "; connection broken: " : "",
              r < 0 ? std::strerror(-r) : "");
  sd_bus_flush_close_unref(bus);
  return 0;
}

std::string now() {
  timespec t{};
  ::clock_gettime(CLOCK_REALTIME, &t);
  char text[32];
  std::snprintf(text, sizeof text, "%lld.%09ld", static_cast<long long>(t.tv_sec), t.tv_nsec);
  return text;
}

std::string item(const std::string& id) {
  return R"({"id":")" + id + R"(","friendlyName":")" + id +
         R"(","targetVersion":"2.0","installPath":"/Applications/)" + id +
         R"(.app","respectDnd":false,"respectMeetings":false})";
}

int root(int argc, char** argv) {
  if (argc != 3 && argc != 4) return 64;
  const long count = std::atol(argv[2]);
  const auto interval = std::chrono::milliseconds(argc == 4 ? std::atol(argv[3]) : 50);
  sd_bus* bus = openBus();
  if (!bus) return 69;
  const auto start = std::chrono::steady_clock::now();
  for (long i = 0; i < count; ++i) {
    std::this_thread::sleep_until(start + i * interval);
    const bool add = i % 2 == 0;
    const std::string k = std::to_string(i / 2);
    const std::string object = add ? "[" + item("root" + k) + "]" : item("done" + k);
    const std::string name = add ? "addItemsToUIControllerQueue" : "didPerformInstall";
    sd_bus_message* call = nullptr;
    sd_bus_message* reply = nullptr;
    sd_bus_error error = SD_BUS_ERROR_NULL;
    int r = sd_bus_message_new_method_call(bus, &call, "com.marvenith.velmo.Agent", kPath,
                                           kInterface, "Post");
    if (r >= 0) r = fill(call, "com.marvenith.velmo." + name, &object, none);
    const std::string sent = now();
    if (r >= 0) r = sd_bus_call(bus, call, 10'000'000, &error, &reply);
    const std::string replied = now();
    const char* outcome = r >= 0 ? "ok" : error.name ? error.name : std::strerror(-r);
    std::printf("%ld %s %s %s %s\n", i, name.c_str(), sent.c_str(), replied.c_str(), outcome);
    std::fflush(stdout);
    sd_bus_error_free(&error);
    sd_bus_message_unref(reply);
    sd_bus_message_unref(call);
  }
  sd_bus_flush_close_unref(bus);
  return 0;
}

}  // namespace

int main(int argc, char** argv) {
  const std::string mode = argc > 1 ? argv[1] : "";
  int result = 64;
  if (mode == "big") result = big(argc, argv);
  if (mode == "fds") result = oneShot(argc, argv, fds);
  if (mode == "churn") result = oneShot(argc, argv, none);
  if (mode == "root") result = root(argc, argv);
  if (result == 64) {
    std::fprintf(stderr,
                 "usage: velmo-bus-flood big NAME BYTES COUNT | fds NAME COUNT |"
                 " churn NAME COUNT | root COUNT [INTERVAL-MS]\n");
  }
  return result;
}
