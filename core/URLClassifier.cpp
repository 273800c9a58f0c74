#include "core/URLClassifier.h"

#include <string>

namespace velmo::core {
namespace {

std::string lowercased(std::string text) {
  for (char& c : text) {
    if (c >= 'A' && c <= 'Z') c = static_cast<char>(c - 'A' + 'a');
  }
  return text;
}

}  // namespace

VelmoURLKind URLClassifier::classify(std::string_view string) {
  if (const auto parsed = URL::fromString(string)) {
    URL url = parsed->standardized();
    if (url.scheme()) {
      const auto scheme = lowercased(*url.scheme());
      if (scheme == "http" || scheme == "https") return VelmoURLKind::web(std::move(url));
    }
    if (url.isFileURL()) return VelmoURLKind::file(std::move(url));
  }
  // Not a web or file URL, or no URL at all: an absolute path still names a
  // file. fileURLWithPath makes a URL of any text that begins with "/".
  if (auto url = URL::fileURLWithPath(string)) return VelmoURLKind::file(std::move(*url));
  return VelmoURLKind::unknown();
}

}  // namespace velmo::core
