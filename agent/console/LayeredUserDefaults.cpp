#include "agent/console/LayeredUserDefaults.h"

#include <cerrno>

namespace velmo::agent::console {

LayeredUserDefaults::LayeredUserDefaults(const platform::PreferenceStores& stores,
                                         std::string domain)
    : stores_(stores), domain_(std::move(domain)) {}

std::optional<core::PlistValue> LayeredUserDefaults::object(std::string_view key) const {
  return stores_.layeredValue(domain_, key);
}

platform::FileResult<> LayeredUserDefaults::setObject(std::string_view, const core::PlistValue&) {
  return platform::FileError{"the console writes no preferences", "NSPOSIXErrorDomain", EROFS};
}

}  // namespace velmo::agent::console
