#include "core/values/Bundle.h"

namespace velmo::core {
namespace {

Bundle& mainBundle() {
  static Bundle bundle;
  return bundle;
}

}  // namespace

const Bundle& Bundle::main() { return mainBundle(); }

void Bundle::setMain(Bundle bundle) { mainBundle() = std::move(bundle); }

std::string Bundle::versionString() const {
  // An empty value says no more than a missing one.
  const auto known = [](const std::optional<std::string>& value) {
    return value && !value->empty() ? *value : std::string("Unknown");
  };
  return known(shortVersionString) + "." + known(version);
}

}  // namespace velmo::core
