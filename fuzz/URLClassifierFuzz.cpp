// Any text as a help button's payload: classified as web, file or unknown,
// never a crash; standardising a URL it yields is idempotent.
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <string_view>

#include "core/URLClassifier.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  const auto kind = velmo::core::URLClassifier::classify(
      std::string_view(reinterpret_cast<const char*>(data), size));
  if (const auto& url = kind.url()) {
    const auto once = url->standardized();
    if (!(once.standardized() == once)) std::abort();
  }
  return 0;
}
