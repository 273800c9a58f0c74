// Arbitrary bytes as an administrator's managed preferences file: parsed as
// a property list, taken into a snapshot as the load does, then every getter
// asked for every key it holds and for one it doesn't. Nothing may crash.
#include <cstddef>
#include <cstdint>
#include <string_view>

#include "core/values/PropertyList.h"
#include "mdm/PreferenceSnapshot.h"

using velmo::mdm::ManagedDomain;

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  auto root =
      velmo::core::PropertyList::parse(std::string_view(reinterpret_cast<const char*>(data), size));
  auto* values = root ? root->getIf<velmo::core::PlistDictionary>() : nullptr;
  if (!values) return 0;
  velmo::mdm::PreferenceSnapshot::Domains domains;
  domains.emplace("com.marvenith.velmo-agent", *values);
  const velmo::mdm::PreferenceSnapshot snapshot(std::move(domains));
  auto askAll = [&](std::string_view key) {
    (void)snapshot.string(key, ManagedDomain::velmoAgent, "");
    (void)snapshot.boolValue(key, ManagedDomain::velmoAgent, false);
    (void)snapshot.intValue(key, ManagedDomain::velmoAgent, 0);
    (void)snapshot.doubleValue(key, ManagedDomain::velmoAgent, 0);
    (void)snapshot.stringIntDictionary(key, ManagedDomain::velmoAgent, {});
    (void)snapshot.stringArray(key, ManagedDomain::velmoAgent, {});
  };
  for (const auto& [key, value] : *values) askAll(key);
  askAll("AbsentKey");
  return 0;
}
