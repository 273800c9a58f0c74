#pragma once

#include <cstdint>
#include <map>
#include <set>
#include <string>
#include <string_view>
#include <vector>

#include "core/values/PlistValue.h"
#include "mdm/ManagedDomain.h"
#include "platform/PreferenceStores.h"

namespace velmo::mdm {

// The values of the managed domains at one moment. Immutable once built, so
// any thread may read it while the next one is being made. Each question is
// a lookup and a conversion: no file, no system call.
class PreferenceSnapshot {
 public:
  using Domains = std::map<std::string, core::PlistDictionary, std::less<>>;

  PreferenceSnapshot() = default;
  explicit PreferenceSnapshot(Domains domains) : domains_(std::move(domains)) {}

  // The raw value, or null for a domain outside the snapshot or a missing key.
  const core::PlistValue* value(std::string_view key, ManagedDomain domain) const;

  std::string string(std::string_view key, ManagedDomain domain, std::string fallback) const;
  bool boolValue(std::string_view key, ManagedDomain domain, bool fallback) const;
  std::int64_t intValue(std::string_view key, ManagedDomain domain, std::int64_t fallback) const;
  double doubleValue(std::string_view key, ManagedDomain domain, double fallback) const;
  std::map<std::string, std::int64_t> stringIntDictionary(
      std::string_view key, ManagedDomain domain,
      std::map<std::string, std::int64_t> fallback) const;
  std::vector<std::string> stringArray(std::string_view key, ManagedDomain domain,
                                       std::vector<std::string> fallback) const;

  const Domains& domains() const { return domains_; }

  // The domains as the stores hold them now: each domain's managed values,
  // with root's own store filling in the keys they leave open.
  static PreferenceSnapshot load(const platform::PreferenceStores& stores,
                                 const std::set<ManagedDomain>& domains);

 private:
  Domains domains_;
};

}  // namespace velmo::mdm
