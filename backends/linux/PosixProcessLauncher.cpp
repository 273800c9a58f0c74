#include "backends/linux/PosixProcessLauncher.h"

#include <fcntl.h>
#include <signal.h>
#include <spawn.h>
#include <sys/mman.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <chrono>
#include <cstring>
#include <filesystem>
#include <string>
#include <thread>

#include <asio/posix/stream_descriptor.hpp>
#include <asio/post.hpp>
#include <asio/steady_timer.hpp>

#include "backends/linux/TrustedExecutable.h"

extern char** environ;

namespace velmo::platform::linux {
namespace {

int openPidfd(pid_t pid) {
#ifdef SYS_pidfd_open
  return static_cast<int>(::syscall(SYS_pidfd_open, pid, 0));
#else
  (void)pid;
  errno = ENOSYS;
  return -1;
#endif
}

// From <linux/close_range.h>, which not every C library exposes.
constexpr unsigned kCloseRangeCloexec = 1U << 2;

void markInheritedCloseOnExec() {
#ifdef SYS_close_range
  if (::syscall(SYS_close_range, 3U, ~0U, kCloseRangeCloexec) == 0) return;
#endif
  // Older kernels: one descriptor at a time.
  std::error_code error;
  for (const auto& entry : std::filesystem::directory_iterator("/proc/self/fd", error)) {
    const std::string name = entry.path().filename().string();
    char* end = nullptr;
    const long fd = std::strtol(name.c_str(), &end, 10);
    if (*end != '\0' || fd < 3) continue;
    const int flags = ::fcntl(static_cast<int>(fd), F_GETFD);
    if (flags >= 0) ::fcntl(static_cast<int>(fd), F_SETFD, flags | FD_CLOEXEC);
  }
}

// One onExit: shared by its handle and the pending wait, so that a wait that
// completes after the handle is gone touches nothing else.
struct ExitWatch {
  ExitWatch(asio::any_io_executor executor, std::function<void()> action, ChildProcess* child)
      : descriptor(executor), poll(executor), action(std::move(action)), child(child) {}

  static void wait(const std::shared_ptr<ExitWatch>& watch) {
    if (watch->cancelled) return;
    if (!watch->child->isRunning()) {
      asio::post(watch->poll.get_executor(), [watch] {
        if (!watch->cancelled) watch->action();
      });
      return;
    }
    const auto again = [watch](std::error_code error) {
      if (!error) wait(watch);
    };
    if (watch->descriptor.is_open()) {
      watch->descriptor.async_wait(asio::posix::descriptor_base::wait_read, again);
    } else {
      watch->poll.expires_after(std::chrono::milliseconds(200));
      watch->poll.async_wait(again);
    }
  }

  asio::posix::stream_descriptor descriptor;
  asio::steady_timer poll;
  std::function<void()> action;
  ChildProcess* child;
  bool cancelled = false;
};

class ExitWatchHandle final : public Timer {
 public:
  explicit ExitWatchHandle(std::shared_ptr<ExitWatch> watch) : watch_(std::move(watch)) {}
  ~ExitWatchHandle() override { cancel(); }
  void cancel() override {
    watch_->cancelled = true;
    std::error_code ignored;
    watch_->descriptor.close(ignored);
    watch_->poll.cancel();
  }

 private:
  std::shared_ptr<ExitWatch> watch_;
};

class PosixChildProcess final : public ChildProcess {
 public:
  PosixChildProcess(pid_t pid, int pidfd, int errorFile)
      : pid_(pid), pidfd_(pidfd), errorFile_(errorFile) {}
  ~PosixChildProcess() override {
    if (pidfd_ >= 0) ::close(pidfd_);
    if (errorFile_ >= 0) ::close(errorFile_);
    // A child that is still running is left to itself, as its owner chose,
    // but it is reaped when it ends, so that it never stays a zombie.
    if (!isRunning()) return;
    std::thread([pid = pid_] {
      while (::waitpid(pid, nullptr, 0) < 0 && errno == EINTR) {
      }
    }).detach();
  }

  std::string standardError() const override {
    std::string text;
    if (errorFile_ < 0) return text;
    char buffer[65536];
    for (off_t offset = 0;;) {
      const ssize_t read = ::pread(errorFile_, buffer, sizeof buffer, offset);
      if (read < 0 && errno == EINTR) continue;
      if (read <= 0) break;
      text.append(buffer, static_cast<std::size_t>(read));
      offset += read;
    }
    return text;
  }

  int processIdentifier() const override { return pid_; }

  bool isRunning() override {
    if (reaped_) return false;
    int status = 0;
    pid_t result;
    do {
      result = ::waitpid(pid_, &status, WNOHANG);
    } while (result < 0 && errno == EINTR);
    if (result == 0) return true;
    reaped_ = true;
    if (result < 0) {
      status_ = -1;  // Someone else reaped it; there is no status to report.
    } else if (WIFEXITED(status)) {
      status_ = WEXITSTATUS(status);
    } else if (WIFSIGNALED(status)) {
      status_ = WTERMSIG(status);
    }
    return false;
  }

  int terminationStatus() const override { return status_; }

  // To the whole group: the tool and whatever it started. The group outlives
  // its leader while a member runs, and its id can't be reused meanwhile.
  void sendSignal(int signal) override {
    if (pid_ > 0) ::kill(-pid_, signal);
  }

  // The pidfd turns readable when the process exits; without one (an old
  // kernel) it looks again every 200 ms.
  std::unique_ptr<Timer> onExit(asio::any_io_executor executor,
                                std::function<void()> action) override {
    auto watch = std::make_shared<ExitWatch>(executor, std::move(action), this);
    const int watched = pidfd_ >= 0 ? ::fcntl(pidfd_, F_DUPFD_CLOEXEC, 0) : -1;
    if (watched >= 0) watch->descriptor.assign(watched);
    ExitWatch::wait(watch);
    return std::make_unique<ExitWatchHandle>(watch);
  }

 private:
  pid_t pid_;
  int pidfd_;
  int errorFile_;
  bool reaped_ = false;
  int status_ = 0;
};

class SpawnSetup {
 public:
  // `errorFile` below 0: standard error goes where standard output goes.
  // `programFile` is kept open in the child (its close-on-exec cleared).
  SpawnSetup(int errorFile, int programFile) {
    ::posix_spawn_file_actions_init(&actions_);
    ::posix_spawnattr_init(&attributes_);
    ::posix_spawn_file_actions_adddup2(&actions_, programFile, programFile);
    ::posix_spawn_file_actions_addopen(&actions_, STDOUT_FILENO, "/dev/null", O_WRONLY, 0);
    if (errorFile >= 0) {
      ::posix_spawn_file_actions_adddup2(&actions_, errorFile, STDERR_FILENO);
    } else {
      ::posix_spawn_file_actions_adddup2(&actions_, STDOUT_FILENO, STDERR_FILENO);
    }
    // The child starts with default signal handling and nothing blocked,
    // whatever the agent itself has set.
    sigset_t empty;
    sigset_t all;
    ::sigemptyset(&empty);
    ::sigfillset(&all);
    ::posix_spawnattr_setsigmask(&attributes_, &empty);
    ::posix_spawnattr_setsigdefault(&attributes_, &all);
    // A group of its own, led by the child.
    ::posix_spawnattr_setpgroup(&attributes_, 0);
    ::posix_spawnattr_setflags(
        &attributes_, POSIX_SPAWN_SETSIGMASK | POSIX_SPAWN_SETSIGDEF | POSIX_SPAWN_SETPGROUP);
  }
  ~SpawnSetup() {
    ::posix_spawn_file_actions_destroy(&actions_);
    ::posix_spawnattr_destroy(&attributes_);
  }
  SpawnSetup(const SpawnSetup&) = delete;
  SpawnSetup& operator=(const SpawnSetup&) = delete;

  const posix_spawn_file_actions_t* actions() const { return &actions_; }
  const posix_spawnattr_t* attributes() const { return &attributes_; }

 private:
  posix_spawn_file_actions_t actions_;
  posix_spawnattr_t attributes_;
};

}  // namespace

PosixProcessLauncher::PosixProcessLauncher(std::filesystem::path trustedRoot)
    : trustedRoot_(std::move(trustedRoot)) {
  markInheritedCloseOnExec();
}

LaunchResult PosixProcessLauncher::launch(const std::filesystem::path& executable,
                                          const std::vector<std::string>& arguments,
                                          StandardError standardError) {
  const std::string program = executable.string();
  auto opened = TrustedExecutable::open(executable, trustedRoot_);
  if (auto* failure = std::get_if<TrustedExecutable::Failure>(&opened)) {
    if (!failure->refused) {
      return LaunchFailure{"The file \"" + program + "\" couldn't be run: " + failure->reason};
    }
    const std::string line = "Refused to start " + program + ": " + failure->reason + ".";
    std::lock_guard lock(mutex_);
    if (auto& said = refusals_[program]; said != failure->reason) {
      said = failure->reason;
      logger_.error(line);
    }
    return LaunchFailure{line, true};
  }
  const int programFile = std::get<TrustedExecutable::Opened>(opened).descriptor;
  {
    std::lock_guard lock(mutex_);
    refusals_.erase(program);
  }
  int errorFile = -1;
  if (standardError == StandardError::capture) {
    errorFile = ::memfd_create("velmo-stderr", MFD_CLOEXEC);
    if (errorFile < 0) {
      ::close(programFile);
      return LaunchFailure{std::string("Cannot make a buffer for standard error: ") +
                           std::strerror(errno)};
    }
  }
  std::vector<char*> argv;
  argv.reserve(arguments.size() + 2);
  std::string name = program;
  argv.push_back(name.data());
  std::vector<std::string> copies(arguments);
  for (auto& argument : copies) argv.push_back(argument.data());
  argv.push_back(nullptr);

  // The checked file itself, through its descriptor, which stays open across
  // the exec so that an interpreter can read a script through it too.
  SpawnSetup setup(errorFile, programFile);
  const std::string started = "/proc/self/fd/" + std::to_string(programFile);
  pid_t pid = 0;
  int error = ::posix_spawn(&pid, started.c_str(), setup.actions(), setup.attributes(), argv.data(),
                            environ);
  ::close(programFile);
  if (error != 0) {
    if (errorFile >= 0) ::close(errorFile);
    return LaunchFailure{"The file \"" + program + "\" couldn't be run: " + std::strerror(error)};
  }
  return std::make_unique<PosixChildProcess>(pid, openPidfd(pid), errorFile);
}

}  // namespace velmo::platform::linux
