#pragma once

#include <cstdint>
#include <map>
#include <memory>
#include <set>
#include <string>
#include <vector>

#include <asio/awaitable.hpp>

#include "core/Debouncer.h"
#include "core/Executors.h"
#include "core/Lifetime.h"
#include "core/logging/CustomLogger.h"
#include "core/notifications/NotificationCenter.h"
#include "mdm/ManagedDomain.h"
#include "mdm/PreferenceSnapshot.h"
#include "platform/Clock.h"
#include "platform/DistributedNotificationCenter.h"
#include "platform/PreferenceStores.h"
#include "platform/WorkspaceEvents.h"

namespace velmo::mdm {

// The process-wide reader of what an administrator imposes: one snapshot of
// the managed domains, built from each domain's managed file (which wins) and
// root's own store. Rebuilt whole, 200 ms after the last of a burst of
// wake, profile and defaults changes. State lives on the instance's strand;
// the getters hop there, take the current snapshot, and answer from it.
// (The getters are named for their result type: boolValue, intValue and
// so on, one per kind of value a caller asks for.)
class ManagedPrefs {
 public:
  static constexpr platform::Duration kReloadDebounce = std::chrono::milliseconds(200);

  struct Collaborators {
    core::Executor mainExecutor;
    platform::Clock& clock;
    const platform::PreferenceStores& stores;
    platform::DistributedNotificationCenter& distributedCenter;
    core::NotificationCenter& notificationCenter;
    platform::WorkspaceEvents& workspaceEvents;
  };

  // Loads at once, so the snapshot is there before anyone asks. Runs on the
  // main executor, where the observers are registered.
  explicit ManagedPrefs(const Collaborators& collaborators,
                        std::set<ManagedDomain> domains = {kAllManagedDomains.begin(),
                                                           kAllManagedDomains.end()});
  ~ManagedPrefs();
  ManagedPrefs(const ManagedPrefs&) = delete;
  ManagedPrefs& operator=(const ManagedPrefs&) = delete;

  asio::awaitable<std::string> string(std::string key, ManagedDomain domain, std::string fallback);
  asio::awaitable<bool> boolValue(std::string key, ManagedDomain domain, bool fallback);
  asio::awaitable<std::int64_t> intValue(std::string key, ManagedDomain domain,
                                         std::int64_t fallback);
  asio::awaitable<double> doubleValue(std::string key, ManagedDomain domain, double fallback);
  asio::awaitable<std::map<std::string, std::int64_t>> stringIntDictionary(
      std::string key, ManagedDomain domain, std::map<std::string, std::int64_t> fallback);
  asio::awaitable<std::vector<std::string>> stringArray(std::string key, ManagedDomain domain,
                                                        std::vector<std::string> fallback);
  // Asks the stores now; the snapshot plays no part.
  asio::awaitable<bool> isForced(std::string key, ManagedDomain domain);

  // The current snapshot, taken on the strand.
  asio::awaitable<std::shared_ptr<const PreferenceSnapshot>> snapshot();
  // How many loads have run, the first one included.
  std::uint64_t loadCount() const { return loads_; }

 private:
  void load();
  asio::awaitable<std::shared_ptr<const PreferenceSnapshot>> snapshotOnStrand();
  asio::awaitable<bool> isForcedOnStrand(std::string key, ManagedDomain domain);

  Collaborators collaborators_;
  core::SerialExecutor strand_;
  std::set<ManagedDomain> domains_;
  std::shared_ptr<const PreferenceSnapshot> cache_;
  std::uint64_t loads_ = 0;
  core::Debouncer refresh_;
  platform::ObserverToken wakeToken_;
  std::vector<platform::ObserverToken> distributedTokens_;
  platform::ObserverToken defaultsToken_;
  core::Lifetime lifetime_;
  core::CustomLogger logger_{"ManagedPrefs"};
};

}  // namespace velmo::mdm
