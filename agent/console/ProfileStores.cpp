#include "agent/console/ProfileStores.h"

namespace velmo::agent::console {

ProfileStores::ProfileStores(const platform::PreferenceStores& machine,
                             PolicyProfile::Domains managed)
    : machine_(machine), managed_(std::move(managed)) {}

std::optional<core::PlistDictionary> ProfileStores::managedValues(std::string_view domain) const {
  const auto found = managed_.find(domain);
  if (found == managed_.end()) return std::nullopt;
  return found->second;
}

core::PlistDictionary ProfileStores::copyAllValues(std::string_view domain) const {
  return machine_.copyAllValues(domain);
}

std::optional<core::PlistDictionary> ProfileStores::machineValues(std::string_view domain) const {
  return machine_.machineValues(domain);
}

bool ProfileStores::isForced(std::string_view key, std::string_view domain) const {
  const auto found = managed_.find(domain);
  return found != managed_.end() && found->second.find(key) != found->second.end();
}

}  // namespace velmo::agent::console
