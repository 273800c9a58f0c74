#include "mdm/ManagedPrefs.h"

#include <asio/post.hpp>

#include "core/notifications/NotificationNames.h"

namespace velmo::mdm {
namespace {

// Profile and managed-preference changes, as the platform announces them.
constexpr std::array<std::string_view, 4> kChangeNotifications{
    "com.apple.configurationprofiles.profileListChanged",
    "com.apple.configurationprofiles.payloadChanged", "com.apple.MCX.changedDomains", "MCXChanged"};

}  // namespace

ManagedPrefs::ManagedPrefs(const Collaborators& collaborators, std::set<ManagedDomain> domains)
    : collaborators_(collaborators),
      strand_(core::makeSerialExecutor(collaborators.mainExecutor)),
      domains_(std::move(domains)),
      refresh_(collaborators.mainExecutor, collaborators.clock, kReloadDebounce, [this] {
        asio::post(strand_, [this, alive = lifetime_.token()] {
          if (*alive) load();
        });
      }) {
  load();
  auto changed = [this, alive = lifetime_.token()] {
    if (*alive) refresh_.trigger();
  };
  wakeToken_ =
      collaborators_.workspaceEvents.addObserver([changed](platform::WorkspaceEvent event) {
        if (event == platform::WorkspaceEvent::didWake) changed();
      });
  for (std::string_view name : kChangeNotifications) {
    distributedTokens_.push_back(collaborators_.distributedCenter.addObserver(
        name, [changed](const platform::DistributedNotification&) { changed(); }));
  }
  defaultsToken_ = collaborators_.notificationCenter.addObserver(
      core::NotificationName::userDefaultsDidChange, [changed](const std::any&) { changed(); });
}

ManagedPrefs::~ManagedPrefs() {
  logger_.debug("ManagedPrefs deinitializing, removing observers");
  collaborators_.workspaceEvents.removeObserver(wakeToken_);
  for (auto token : distributedTokens_) collaborators_.distributedCenter.removeObserver(token);
  collaborators_.notificationCenter.removeObserver(defaultsToken_);
}

void ManagedPrefs::load() {
  cache_ = std::make_shared<const PreferenceSnapshot>(
      PreferenceSnapshot::load(collaborators_.stores, domains_));
  ++loads_;
}

asio::awaitable<std::shared_ptr<const PreferenceSnapshot>> ManagedPrefs::snapshotOnStrand() {
  co_return cache_;
}

asio::awaitable<std::shared_ptr<const PreferenceSnapshot>> ManagedPrefs::snapshot() {
  co_return co_await core::runOn(strand_, snapshotOnStrand());
}

asio::awaitable<std::string> ManagedPrefs::string(std::string key, ManagedDomain domain,
                                                  std::string fallback) {
  co_return (co_await snapshot())->string(key, domain, std::move(fallback));
}

asio::awaitable<bool> ManagedPrefs::boolValue(std::string key, ManagedDomain domain,
                                              bool fallback) {
  co_return (co_await snapshot())->boolValue(key, domain, fallback);
}

asio::awaitable<std::int64_t> ManagedPrefs::intValue(std::string key, ManagedDomain domain,
                                                     std::int64_t fallback) {
  co_return (co_await snapshot())->intValue(key, domain, fallback);
}

asio::awaitable<double> ManagedPrefs::doubleValue(std::string key, ManagedDomain domain,
                                                  double fallback) {
  co_return (co_await snapshot())->doubleValue(key, domain, fallback);
}

asio::awaitable<std::map<std::string, std::int64_t>> ManagedPrefs::stringIntDictionary(
    std::string key, ManagedDomain domain, std::map<std::string, std::int64_t> fallback) {
  co_return (co_await snapshot())->stringIntDictionary(key, domain, std::move(fallback));
}

asio::awaitable<std::vector<std::string>> ManagedPrefs::stringArray(
    std::string key, ManagedDomain domain, std::vector<std::string> fallback) {
  co_return (co_await snapshot())->stringArray(key, domain, std::move(fallback));
}

asio::awaitable<bool> ManagedPrefs::isForcedOnStrand(std::string key, ManagedDomain domain) {
  co_return collaborators_.stores.isForced(key, rawValue(domain));
}

asio::awaitable<bool> ManagedPrefs::isForced(std::string key, ManagedDomain domain) {
  co_return co_await core::runOn(strand_, isForcedOnStrand(std::move(key), domain));
}

}  // namespace velmo::mdm
