#include "agent/console/LayeredUserDefaults.h"

#include <cerrno>

namespace velmo::agent::console {
namespace {

std::optional<core::PlistValue> lookUp(const std::optional<core::PlistDictionary>& store,
                                       std::string_view key) {
  if (!store) return std::nullopt;
  const auto found = store->find(key);
  if (found == store->end()) return std::nullopt;
  return found->second;
}

}  // namespace

LayeredUserDefaults::LayeredUserDefaults(const platform::PreferenceStores& stores,
                                         std::string domain)
    : stores_(stores), domain_(std::move(domain)) {}

std::optional<core::PlistValue> LayeredUserDefaults::object(std::string_view key) const {
  if (auto value = lookUp(stores_.managedValues(domain_), key)) return value;
  if (auto value = lookUp(stores_.copyAllValues(domain_), key)) return value;
  return lookUp(stores_.machineValues(domain_), key);
}

platform::FileResult<> LayeredUserDefaults::setObject(std::string_view, const core::PlistValue&) {
  return platform::FileError{"the console writes no preferences", "NSPOSIXErrorDomain", EROFS};
}

}  // namespace velmo::agent::console
