// Any bytes as a property-list file (XML or binary): the reader answers with a
// value or nothing, never a crash; what it reads can be written back.
#include <cstddef>
#include <cstdint>
#include <string_view>

#include "core/values/PropertyList.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  const auto value =
      velmo::core::PropertyList::parse(std::string_view(reinterpret_cast<const char*>(data), size));
  if (value) (void)velmo::core::PropertyList::xml(*value);
  return 0;
}
