#include "mdm/PreferenceSnapshot.h"

#include "mdm/PreferenceConversions.h"

namespace velmo::mdm {
namespace {

template <typename T, typename Convert>
T convertOr(const core::PlistValue* value, T fallback, Convert convert) {
  if (!value) return fallback;
  auto converted = convert(*value);
  return converted ? std::move(*converted) : std::move(fallback);
}

}  // namespace

const core::PlistValue* PreferenceSnapshot::value(std::string_view key,
                                                  ManagedDomain domain) const {
  const auto values = domains_.find(rawValue(domain));
  if (values == domains_.end()) return nullptr;
  const auto found = values->second.find(key);
  return found == values->second.end() ? nullptr : &found->second;
}

std::string PreferenceSnapshot::string(std::string_view key, ManagedDomain domain,
                                       std::string fallback) const {
  return convertOr(value(key, domain), std::move(fallback), PreferenceConversions::string);
}

bool PreferenceSnapshot::boolValue(std::string_view key, ManagedDomain domain,
                                   bool fallback) const {
  return convertOr(value(key, domain), fallback, PreferenceConversions::boolean);
}

std::int64_t PreferenceSnapshot::intValue(std::string_view key, ManagedDomain domain,
                                          std::int64_t fallback) const {
  return convertOr(value(key, domain), fallback, PreferenceConversions::integer);
}

double PreferenceSnapshot::doubleValue(std::string_view key, ManagedDomain domain,
                                       double fallback) const {
  return convertOr(value(key, domain), fallback, PreferenceConversions::real);
}

std::map<std::string, std::int64_t> PreferenceSnapshot::stringIntDictionary(
    std::string_view key, ManagedDomain domain,
    std::map<std::string, std::int64_t> fallback) const {
  return convertOr(value(key, domain), std::move(fallback),
                   PreferenceConversions::stringIntDictionary);
}

std::vector<std::string> PreferenceSnapshot::stringArray(std::string_view key, ManagedDomain domain,
                                                         std::vector<std::string> fallback) const {
  return convertOr(value(key, domain), std::move(fallback), PreferenceConversions::stringArray);
}

PreferenceSnapshot PreferenceSnapshot::load(const platform::PreferenceStores& stores,
                                            const std::set<ManagedDomain>& domains) {
  Domains snapshot;
  for (ManagedDomain domain : domains) {
    const std::string_view name = rawValue(domain);
    // Managed values first; root's own store only fills what they leave open.
    core::PlistDictionary merged = stores.managedValues(name).value_or(core::PlistDictionary{});
    for (auto& [key, value] : stores.copyAllValues(name)) merged.try_emplace(key, std::move(value));
    snapshot.emplace(std::string(name), std::move(merged));
  }
  return PreferenceSnapshot(std::move(snapshot));
}

}  // namespace velmo::mdm
