#include "core/Bundle.h"

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
  return shortVersionString.value_or("Unknown") + "." + version.value_or("Unknown");
}

}  // namespace velmo::core
