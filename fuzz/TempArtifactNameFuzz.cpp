// Any file name in an application folder, as a user who can write there may
// choose it: read as a temp artifact or refused, never a crash. A name that
// is taken has the form's fixed parts, whatever sits in its free part.
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <string_view>

#include "agent/maintenance/TempArtifactName.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  const std::string_view name(reinterpret_cast<const char*>(data), size);
  const auto stamp = velmo::agent::maintenance::TempArtifactName::timestamp(name);
  if (stamp && (name.empty() || name.front() != '.' || name.size() < 32)) std::abort();
  return 0;
}
