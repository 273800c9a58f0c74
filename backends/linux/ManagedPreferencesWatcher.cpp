#include "backends/linux/ManagedPreferencesWatcher.h"

#include <sys/inotify.h>
#include <sys/stat.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <cstring>
#include <map>
#include <optional>
#include <set>
#include <string>
#include <vector>

#include <asio/error.hpp>
#include <asio/posix/stream_descriptor.hpp>

#include "core/Lifetime.h"
#include "core/logging/CustomLogger.h"
#include "core/notifications/NotificationCenter.h"
#include "core/notifications/NotificationNames.h"
#include "core/values/PlistValue.h"

namespace velmo::platform::linux {
namespace {

constexpr std::string_view kPlistSuffix = ".plist";

// A plist written in place, replaced by rename, or removed; and the folder
// itself going away, after which it is watched afresh.
constexpr std::uint32_t kWatchMask = IN_CLOSE_WRITE | IN_MODIFY | IN_CREATE | IN_DELETE |
                                     IN_MOVED_FROM | IN_MOVED_TO | IN_DELETE_SELF | IN_MOVE_SELF |
                                     IN_ONLYDIR;

enum class Store {
  // Every plist is a domain of its own.
  managed,
  // Root's own or the machine-wide store: only the agent's domain matters.
  agentDefaults,
};

struct WatchedDirectory {
  std::filesystem::path path;
  Store store;
};

// "com.example.app.plist" gives "com.example.app"; other names, such as the
// temporary file of an atomic write, give nothing.
std::optional<std::string> domainOf(std::string_view fileName) {
  if (fileName.size() <= kPlistSuffix.size() || !fileName.ends_with(kPlistSuffix)) {
    return std::nullopt;
  }
  fileName.remove_suffix(kPlistSuffix.size());
  return std::string(fileName);
}

std::string errnoText(int error) { return std::strerror(error); }

// Creates `directory` and its missing parents, each with mode 0755 whatever
// the umask. Returns the errno of the first failure, or 0.
int createDirectories(const std::filesystem::path& directory) {
  std::filesystem::path partial;
  for (const auto& component : directory) {
    partial /= component;
    if (::mkdir(partial.c_str(), 0755) == 0) {
      if (::chmod(partial.c_str(), 0755) != 0) return errno;
    } else if (errno != EEXIST) {
      return errno;
    }
  }
  return 0;
}

}  // namespace

class ManagedPreferencesWatcher::State : public std::enable_shared_from_this<State> {
 public:
  explicit State(const Collaborators& collaborators)
      : executor_(collaborators.executor),
        clock_(collaborators.clock),
        distributedCenter_(collaborators.distributedCenter),
        notificationCenter_(collaborators.notificationCenter),
        agentFileName_(
            collaborators.paths.rootPreferencesFile(kUserDefaultsDomain).filename().string()),
        directories_{
            {collaborators.paths.managedPreferencesDirectory(), Store::managed},
            {collaborators.paths.rootPreferencesFile(kUserDefaultsDomain).parent_path(),
             Store::agentDefaults},
            {collaborators.paths.machinePreferencesFile(kUserDefaultsDomain).parent_path(),
             Store::agentDefaults},
        },
        descriptor_(collaborators.executor) {}

  // Separate from the constructor: the pending read needs weak_from_this().
  void start() {
    const int fd = ::inotify_init1(IN_NONBLOCK | IN_CLOEXEC);
    if (fd < 0) {
      logger_.error("Could not set up change events for preferences: " + errnoText(errno));
      return;
    }
    std::error_code error;
    descriptor_.assign(fd, error);
    if (error) {
      ::close(fd);
      logger_.error("Could not set up change events for preferences: " + error.message());
      return;
    }
    for (std::size_t index = 0; index < directories_.size(); ++index) watch(index);
    readEvents();
  }

 private:
  void watch(std::size_t index) {
    const std::filesystem::path& path = directories_[index].path;
    if (const int error = createDirectories(path)) {
      logger_.error("Could not create " + path.string() + ": " + errnoText(error));
      return;
    }
    const int wd = ::inotify_add_watch(descriptor_.native_handle(), path.c_str(), kWatchMask);
    if (wd < 0) {
      logger_.error("Could not watch " + path.string() + " for changes: " + errnoText(errno));
      return;
    }
    watches_[wd] = index;
    logger_.debug("Watching " + path.string() + " for preference changes");
  }

  void readEvents() {
    descriptor_.async_read_some(
        asio::buffer(buffer_),
        core::whileAlive(
            weak_from_this(), [](State& self, std::error_code error, std::size_t size) {
              if (error == asio::error::operation_aborted) return;
              if (error) {
                self.logger_.error("Stopped watching preferences for changes: " + error.message());
                return;
              }
              self.handleEvents(size);
              self.readEvents();
            }));
  }

  void handleEvents(std::size_t size) {
    bool relevant = false;
    std::size_t offset = 0;
    while (offset + sizeof(inotify_event) <= size) {
      // Copied out: the buffer gives no alignment guarantee for the header.
      inotify_event event;
      std::memcpy(&event, buffer_.data() + offset, sizeof event);
      const std::size_t nameOffset = offset + sizeof event;
      if (nameOffset + event.len > size) break;
      const char* name = buffer_.data() + nameOffset;
      relevant |= handleEvent(event, std::string_view(name, ::strnlen(name, event.len)));
      offset = nameOffset + event.len;
    }
    if (relevant) armSettleTimer();
  }

  // Returns whether the event counts as a change.
  bool handleEvent(const inotify_event& event, std::string_view name) {
    if (event.mask & IN_Q_OVERFLOW) {
      logger_.warning("Missed preference changes; taking every present domain as changed");
      bool relevant = false;
      for (std::size_t index = 0; index < directories_.size(); ++index) {
        relevant |= noteExistingFiles(index);
      }
      return relevant;
    }
    const auto found = watches_.find(event.wd);
    if (found == watches_.end()) return false;
    const std::size_t index = found->second;
    if (event.mask & (IN_DELETE_SELF | IN_MOVE_SELF | IN_IGNORED)) {
      // The folder went away or moved: watch its path again. What it holds
      // now is unknown, so every file there counts as changed.
      watches_.erase(found);
      ::inotify_rm_watch(descriptor_.native_handle(), event.wd);
      watch(index);
      return noteExistingFiles(index);
    }
    if ((event.mask & IN_ISDIR) || name.empty()) return false;
    return noteFile(directories_[index].store, name);
  }

  bool noteFile(Store store, std::string_view name) {
    if (store == Store::agentDefaults) {
      if (name != agentFileName_) return false;
      userDefaultsChanged_ = true;
      return true;
    }
    auto domain = domainOf(name);
    if (!domain) return false;
    if (*domain == kUserDefaultsDomain) userDefaultsChanged_ = true;
    changedDomains_.insert(std::move(*domain));
    return true;
  }

  bool noteExistingFiles(std::size_t index) {
    const WatchedDirectory& directory = directories_[index];
    bool relevant = false;
    std::error_code error;
    for (std::filesystem::directory_iterator it(directory.path, error), end; !error && it != end;
         it.increment(error)) {
      std::error_code ignored;
      if (it->is_directory(ignored)) continue;
      relevant |= noteFile(directory.store, it->path().filename().string());
    }
    return relevant;
  }

  void armSettleTimer() {
    // The old timer goes before the new one exists, so two never coexist.
    settleTimer_.reset();
    settleTimer_ = clock_.scheduleAfter(
        kSettleTime, executor_,
        core::whileAlive(weak_from_this(), [](State& self) { self.settle(); }));
  }

  void settle() {
    const std::set<std::string> domains = std::exchange(changedDomains_, {});
    const bool userDefaultsChanged = std::exchange(userDefaultsChanged_, false);
    if (!domains.empty()) {
      std::string list;
      core::PlistArray values;
      for (const std::string& domain : domains) {
        list += (list.empty() ? "" : ", ") + domain;
        values.emplace_back(domain);
      }
      logger_.debug("Managed preferences changed for domains: " + list);
      const core::PlistDictionary userInfo{
          {std::string(core::kChangedDomainsKey), core::PlistValue(std::move(values))}};
      distributedCenter_.post(core::NotificationName::managementStatusChangedForDomains,
                              std::nullopt, userInfo);
      distributedCenter_.post(core::NotificationName::changedDomains, std::nullopt, userInfo);
    }
    if (userDefaultsChanged) {
      notificationCenter_.post(core::NotificationName::userDefaultsDidChange);
    }
  }

  asio::any_io_executor executor_;
  Clock& clock_;
  DistributedNotificationCenter& distributedCenter_;
  core::NotificationCenter& notificationCenter_;
  const std::string agentFileName_;
  const std::vector<WatchedDirectory> directories_;
  // Declared before the descriptor, whose destruction ends the read into it.
  std::array<char, 16 * 1024> buffer_;
  asio::posix::stream_descriptor descriptor_;
  // Watch descriptor to index in directories_.
  std::map<int, std::size_t> watches_;
  // What the current burst changed; sorted and unique for the user info.
  std::set<std::string> changedDomains_;
  bool userDefaultsChanged_ = false;
  std::unique_ptr<Timer> settleTimer_;
  core::CustomLogger logger_{"ManagedPreferencesWatcher"};
};

ManagedPreferencesWatcher::ManagedPreferencesWatcher(const Collaborators& collaborators)
    : state_(std::make_shared<State>(collaborators)) {
  state_->start();
}

ManagedPreferencesWatcher::~ManagedPreferencesWatcher() = default;

}  // namespace velmo::platform::linux
