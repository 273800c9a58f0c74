#include "tests/support/PrivateBus.h"

#include <fcntl.h>
#include <signal.h>
#include <sys/prctl.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <sys/wait.h>
#include <unistd.h>

#include <chrono>
#include <cstdlib>
#include <cstring>
#include <stdexcept>
#include <thread>
#include <vector>

namespace velmo::testing {
namespace {

bool accepts(const std::filesystem::path& socket) {
  const int fd = ::socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0);
  sockaddr_un address{};
  address.sun_family = AF_UNIX;
  std::strncpy(address.sun_path, socket.c_str(), sizeof address.sun_path - 1);
  const bool ok = ::connect(fd, reinterpret_cast<sockaddr*>(&address), sizeof address) == 0;
  ::close(fd);
  return ok;
}

}  // namespace

PrivateBus::PrivateBus() {
  char pattern[] = "/tmp/velmo-bus-XXXXXX";
  directory_ = ::mkdtemp(pattern);
  socket_ = directory_ / "bus";
  address_ = "unix:path=" + socket_.string();
  ::setenv("DBUS_SYSTEM_BUS_ADDRESS", address_.c_str(), 1);
  start();
}

PrivateBus::~PrivateBus() {
  stop();
  ::unsetenv("DBUS_SYSTEM_BUS_ADDRESS");
  std::error_code ignored;
  std::filesystem::remove_all(directory_, ignored);
}

void PrivateBus::start() {
  if (pid_ > 0) return;
  const std::string config =
      std::string("--config-file=") + VELMO_TEST_SUPPORT_DIR + "/dbus/test-bus.conf";
  const std::string address = "--address=" + address_;
  std::vector<std::string> arguments{"dbus-daemon", config, address, "--nofork", "--nopidfile"};
  std::vector<char*> argv;
  for (auto& argument : arguments) argv.push_back(argument.data());
  argv.push_back(nullptr);
  pid_ = ::fork();
  if (pid_ < 0) throw std::runtime_error("cannot start dbus-daemon");
  if (pid_ == 0) {
    // The daemon dies with the test, even one that crashed, and never holds
    // the test runner's output open.
    ::prctl(PR_SET_PDEATHSIG, SIGKILL);
    const int null = ::open("/dev/null", O_RDWR);
    ::dup2(null, STDOUT_FILENO);
    ::dup2(null, STDERR_FILENO);
    ::execvp("dbus-daemon", argv.data());
    ::_exit(127);
  }
  const auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds(10);
  while (!accepts(socket_)) {
    if (::waitpid(pid_, nullptr, WNOHANG) == pid_) {
      pid_ = -1;
      throw std::runtime_error("dbus-daemon exited at start");
    }
    if (std::chrono::steady_clock::now() > deadline) throw std::runtime_error("bus not ready");
    std::this_thread::sleep_for(std::chrono::milliseconds(10));
  }
}

void PrivateBus::stop() {
  if (pid_ <= 0) return;
  ::kill(pid_, SIGKILL);
  ::waitpid(pid_, nullptr, 0);
  pid_ = -1;
  std::filesystem::remove(socket_);
}

}  // namespace velmo::testing
