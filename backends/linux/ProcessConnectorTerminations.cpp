#include "backends/linux/ProcessConnectorTerminations.h"

#include <arpa/inet.h>
#include <linux/cn_proc.h>
#include <linux/connector.h>
#include <linux/filter.h>
#include <linux/netlink.h>
#include <sys/socket.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <climits>
#include <cstdio>
#include <cstring>
#include <string>
#include <system_error>

namespace velmo::platform::linux {
namespace {

// The executable of `pid`; nothing once it has exited. This runs for every
// exec on the machine: one system call into a buffer on the stack, and a
// program outside any `.app` is told apart without building a path.
std::optional<std::filesystem::path> executableOf(pid_t pid, bool applicationsOnly = false) {
  char link[32];
  std::snprintf(link, sizeof link, "/proc/%d/exe", static_cast<int>(pid));
  char target[PATH_MAX];
  const ssize_t length = ::readlink(link, target, sizeof target);
  if (length <= 0 || static_cast<std::size_t>(length) >= sizeof target) return std::nullopt;
  const std::string_view text(target, static_cast<std::size_t>(length));
  if (applicationsOnly && text.find(".app/Contents/MacOS/") == std::string_view::npos) {
    return std::filesystem::path();
  }
  return std::filesystem::path(text);
}

// Every process with an application's executable, by process id.
std::map<pid_t, std::filesystem::path> runningApplications() {
  std::map<pid_t, std::filesystem::path> found;
  std::error_code error;
  for (const auto& entry : std::filesystem::directory_iterator("/proc", error)) {
    const std::string name = entry.path().filename();
    if (name.empty() || name.find_first_not_of("0123456789") != std::string::npos) continue;
    const pid_t pid = static_cast<pid_t>(std::stol(name));
    if (const auto executable = executableOf(pid)) {
      if (auto bundle = ApplicationTerminations::bundleOfExecutable(*executable)) {
        found.emplace(pid, std::move(*bundle));
      }
    }
  }
  return found;
}

// Where the fields the filter reads lie in a message: the netlink header, the
// connector's header, then the event.
constexpr std::uint32_t kEventOffset = NLMSG_HDRLEN + sizeof(cn_msg);
constexpr std::uint32_t kWhatOffset = kEventOffset + offsetof(proc_event, what);
constexpr std::uint32_t kPidOffset =
    kEventOffset + offsetof(proc_event, event_data.exit.process_pid);
constexpr std::uint32_t kTgidOffset =
    kEventOffset + offsetof(proc_event, event_data.exit.process_tgid);
static_assert(offsetof(proc_event, event_data.exec.process_tgid) ==
                  offsetof(proc_event, event_data.exit.process_tgid),
              "an exec's and an exit's process ids lie at the same place");

// Every exec; the exit of a whole process (not a thread) that is one of
// `watched`, or of any process when `watched` is absent (too many to list).
// Classic BPF reads words in network byte order, hence htonl.
std::vector<sock_filter> eventFilter(const std::vector<pid_t>* watched) {
  constexpr std::uint32_t kPass = 0xffffffff;
  std::vector<sock_filter> program{
      BPF_STMT(BPF_LD | BPF_W | BPF_ABS, kWhatOffset),
      BPF_JUMP(BPF_JMP | BPF_JEQ | BPF_K, htonl(proc_event::PROC_EVENT_EXEC), 0, 1),
      BPF_STMT(BPF_RET | BPF_K, kPass),
      BPF_JUMP(BPF_JMP | BPF_JEQ | BPF_K, htonl(proc_event::PROC_EVENT_EXIT), 1, 0),
      BPF_STMT(BPF_RET | BPF_K, 0),
      BPF_STMT(BPF_LD | BPF_W | BPF_ABS, kPidOffset),
      BPF_STMT(BPF_MISC | BPF_TAX, 0),
      BPF_STMT(BPF_LD | BPF_W | BPF_ABS, kTgidOffset),
      BPF_JUMP(BPF_JMP | BPF_JEQ | BPF_X, 0, 1, 0),
      BPF_STMT(BPF_RET | BPF_K, 0),
  };
  if (!watched) {
    program.push_back(BPF_STMT(BPF_RET | BPF_K, kPass));
    return program;
  }
  // Jumps reach 255 instructions at most: each id is a test and its own pass.
  for (const pid_t pid : *watched) {
    program.push_back(
        BPF_JUMP(BPF_JMP | BPF_JEQ | BPF_K, htonl(static_cast<std::uint32_t>(pid)), 0, 1));
    program.push_back(BPF_STMT(BPF_RET | BPF_K, kPass));
  }
  program.push_back(BPF_STMT(BPF_RET | BPF_K, 0));
  return program;
}

}  // namespace

ProcessConnectorTerminations::ProcessConnectorTerminations(core::Executor mainExecutor,
                                                           Clock& clock)
    : mainExecutor_(std::move(mainExecutor)), clock_(clock) {}

ProcessConnectorTerminations::~ProcessConnectorTerminations() { lifetime_.end(); }

void ProcessConnectorTerminations::start() {
  // Listen first, then look: a process that starts in between is seen twice,
  // never missed.
  const bool connected = openConnector();
  applications_ = runningApplications();
  if (!connected) {
    scheduleScan();
    return;
  }
  waitForEvents();
  // Outside the machine's first namespaces the kernel takes the subscription
  // but sends nothing. A child that ends at once must be heard of soon.
  const pid_t probe = ::fork();
  if (probe == 0) ::_exit(0);
  if (probe > 0) ::waitpid(probe, nullptr, 0);
  scanTimer_ = clock_.scheduleAfter(kProbeWait, mainExecutor_, [this] {
    if (heard_) return;
    logger_.warning(
        "The kernel's process connector sends no events here; looking for ended applications in "
        "/proc every 2 s.");
    descriptor_.reset();
    scheduleScan();
  });
}

bool ProcessConnectorTerminations::openConnector() {
  const int fd = ::socket(PF_NETLINK, SOCK_DGRAM | SOCK_CLOEXEC | SOCK_NONBLOCK, NETLINK_CONNECTOR);
  const auto giveUp = [&](const char* what) {
    const int error = errno;
    if (fd >= 0) ::close(fd);
    logger_.warning(std::string("Cannot use the kernel's process connector (") + what + ": " +
                    std::strerror(error) + "); looking for ended applications in /proc every 2 s.");
    return false;
  };
  if (fd < 0) return giveUp("socket");
  sockaddr_nl address{};
  address.nl_family = AF_NETLINK;
  address.nl_groups = CN_IDX_PROC;
  if (::bind(fd, reinterpret_cast<sockaddr*>(&address), sizeof address) != 0) {
    return giveUp("bind");
  }
  // The subscription: a netlink header, a connector message and its operation.
  alignas(nlmsghdr) char request[NLMSG_SPACE(sizeof(cn_msg) + sizeof(proc_cn_mcast_op))]{};
  auto* header = reinterpret_cast<nlmsghdr*>(request);
  header->nlmsg_len = NLMSG_LENGTH(sizeof(cn_msg) + sizeof(proc_cn_mcast_op));
  header->nlmsg_type = NLMSG_DONE;
  auto* message = static_cast<cn_msg*>(NLMSG_DATA(header));
  message->id.idx = CN_IDX_PROC;
  message->id.val = CN_VAL_PROC;
  message->len = sizeof(proc_cn_mcast_op);
  const proc_cn_mcast_op operation = PROC_CN_MCAST_LISTEN;
  std::memcpy(message->data, &operation, sizeof operation);
  if (::send(fd, request, header->nlmsg_len, 0) != static_cast<ssize_t>(header->nlmsg_len)) {
    return giveUp("subscribe");
  }
  descriptor_ = std::make_unique<asio::posix::stream_descriptor>(mainExecutor_, fd);
  logger_.debug("Watching application terminations through the kernel's process connector.");
  return true;
}

void ProcessConnectorTerminations::waitForEvents() {
  descriptor_->async_wait(asio::posix::stream_descriptor::wait_read,
                          [this, alive = lifetime_.token()](const std::error_code& error) {
                            if (!*alive || error) return;
                            readEvents();
                            waitForEvents();
                          });
}

void ProcessConnectorTerminations::readEvents() {
  alignas(nlmsghdr) char buffer[16384];
  for (;;) {
    const ssize_t size = ::recv(descriptor_->native_handle(), buffer, sizeof buffer, 0);
    if (size < 0) {
      if (errno == EINTR) continue;
      // Events were dropped: what runs now is the best knowledge left.
      if (errno == ENOBUFS) {
        logger_.warning("The process connector dropped events; looking at /proc again.");
        scan();
        continue;
      }
      if (std::exchange(filterWanted_, false)) updateFilter();
      return;  // EAGAIN: all read.
    }
    // Message by message; the kernel's own macros mix signed and unsigned.
    const auto total = static_cast<std::size_t>(size);
    for (std::size_t offset = 0; offset + sizeof(nlmsghdr) <= total;) {
      const auto* header = reinterpret_cast<const nlmsghdr*>(buffer + offset);
      if (header->nlmsg_len < sizeof(nlmsghdr) || offset + header->nlmsg_len > total) break;
      handleMessage(header);
      offset += NLMSG_ALIGN(header->nlmsg_len);
    }
  }
}

void ProcessConnectorTerminations::handleMessage(const nlmsghdr* header) {
  if (header->nlmsg_type != NLMSG_DONE) return;
  const auto* message = static_cast<const cn_msg*>(NLMSG_DATA(header));
  if (message->id.idx != CN_IDX_PROC || message->id.val != CN_VAL_PROC) return;
  if (message->len < sizeof(proc_event)) return;
  // The event follows a 20-byte header and so is not aligned for its type: copy it out.
  proc_event event;
  std::memcpy(&event, message->data, sizeof event);
  // The start's probe is heard unfiltered; the filter comes after it.
  if (!std::exchange(heard_, true)) filterWanted_ = true;
  if (event.what == proc_event::PROC_EVENT_EXEC) {
    noteExec(event.event_data.exec.process_tgid);
  } else if (event.what == proc_event::PROC_EVENT_EXIT &&
             event.event_data.exit.process_pid == event.event_data.exit.process_tgid) {
    noteExit(event.event_data.exit.process_tgid);  // The whole process, not one thread.
  }
}

void ProcessConnectorTerminations::noteExec(pid_t pid) {
  const auto executable = executableOf(pid, true);
  auto bundle = executable ? bundleOfExecutable(*executable) : std::nullopt;
  if (bundle) {
    applications_[pid] = std::move(*bundle);
    filterWanted_ = true;
  } else if (applications_.erase(pid) > 0) {  // An application that became another program.
    filterWanted_ = true;
  }
}

void ProcessConnectorTerminations::updateFilter() {
  if (!descriptor_) return;
  std::vector<pid_t> watched;
  for (const auto& [pid, bundle] : applications_) watched.push_back(pid);
  const bool listed = watched.size() <= kMaxFilteredApplications;
  std::vector<sock_filter> program = eventFilter(listed ? &watched : nullptr);
  const sock_fprog filter{static_cast<unsigned short>(program.size()), program.data()};
  if (::setsockopt(descriptor_->native_handle(), SOL_SOCKET, SO_ATTACH_FILTER, &filter,
                   sizeof filter) != 0) {
    logger_.debug(std::string("Cannot filter process events in the kernel: ") +
                  std::strerror(errno));
    return;
  }
  // An application that ended between its exec and now had its exit held
  // back by the old filter: one whose executable is gone has ended.
  std::vector<pid_t> ended;
  for (const pid_t pid : watched) {
    if (!executableOf(pid)) ended.push_back(pid);
  }
  for (const pid_t pid : ended) noteExit(pid);
}

void ProcessConnectorTerminations::noteExit(pid_t pid) {
  const auto found = applications_.find(pid);
  if (found == applications_.end()) return;
  const std::filesystem::path bundle = std::move(found->second);
  applications_.erase(found);
  filterWanted_ = true;
  emit(bundle);
}

void ProcessConnectorTerminations::scan() {
  auto now = runningApplications();
  for (const auto& [pid, bundle] : applications_) {
    const auto still = now.find(pid);
    if (still == now.end() || still->second != bundle) emit(bundle);
  }
  applications_ = std::move(now);
  filterWanted_ = true;
}

void ProcessConnectorTerminations::scheduleScan() {
  scanTimer_ = clock_.scheduleAfter(kScanPeriod, mainExecutor_, [this] {
    scan();
    scheduleScan();
  });
}

void ProcessConnectorTerminations::emit(const std::filesystem::path& bundle) {
  auto handlers = handlers_;
  for (auto& [token, handler] : handlers) handler(bundle);
}

ObserverToken ProcessConnectorTerminations::addObserver(Handler handler) {
  handlers_.emplace(nextToken_, std::move(handler));
  return {nextToken_++};
}

void ProcessConnectorTerminations::removeObserver(ObserverToken token) {
  handlers_.erase(token.value);
}

}  // namespace velmo::platform::linux
