// Any bytes as a configuration profile a local account hands to lint: XML,
// binary, or a CMS envelope around either. The reader refuses or reads them,
// never crashes, and never lets libplist see what PlistGuard refuses.
#include <cstddef>
#include <cstdint>
#include <string_view>

#include "mdm/ConfigurationProfile.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  const auto reading = velmo::mdm::ConfigurationProfile::read(
      std::string_view(reinterpret_cast<const char*>(data), size));
  std::size_t keys = 0;
  for (const auto& payload : reading.payloads) keys += payload.values.size() + payload.name.size();
  for (const auto& skipped : reading.skipped) keys += skipped.type.size();
  return keys == SIZE_MAX ? 1 : 0;
}
