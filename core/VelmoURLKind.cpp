#include "core/VelmoURLKind.h"

#include <utility>

namespace velmo::core {

VelmoURLKind::VelmoURLKind(Case kind, std::optional<URL> url) : kind_(kind), url_(std::move(url)) {}

VelmoURLKind VelmoURLKind::web(URL url) { return {Case::web, std::move(url)}; }

VelmoURLKind VelmoURLKind::file(URL url) { return {Case::file, std::move(url)}; }

VelmoURLKind VelmoURLKind::unknown() { return {Case::unknown, std::nullopt}; }

}  // namespace velmo::core
