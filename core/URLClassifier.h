#pragma once

#include <string_view>

#include "core/VelmoURLKind.h"

namespace velmo::core {

// Tells web addresses and files apart in configured strings (help button
// payloads, links in notifications). Stateless.
class URLClassifier {
 public:
  // An http or https URL (scheme in any case) is `web` and a file URL is
  // `file`, both standardised. Any other text that begins with "/" is `file`
  // with that text as its path, as written; the rest, "~/..." included, is
  // `unknown`.
  static VelmoURLKind classify(std::string_view string);
};

}  // namespace velmo::core
