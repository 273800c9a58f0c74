// Any text as the notifier's dialog response or as the deferrals file: decoded
// or refused, never a crash; what decodes encodes and decodes again to the
// same value.
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <string_view>

#include "core/deferrals/Deferral.h"
#include "core/deferrals/DialogResponse.h"
#include "core/items/ToolIdentifier.h"

namespace {

using velmo::core::decodeDeferralMap;
using velmo::core::DialogResponse;
using velmo::core::encodeDeferralMap;

void checkResponse(std::string_view text) {
  const auto response = DialogResponse::fromJSONText(text);
  if (!response) return;
  // Nothing decoded can put a flag or a NUL on the tool's command line.
  if (!velmo::core::ToolIdentifier::isValid(response->appId) ||
      !velmo::core::ToolIdentifier::isValid(response->identifier)) {
    std::abort();
  }
  // Decoded strings are valid UTF-8, so encoding can't fail.
  const auto encoded = response->jsonText();
  if (!encoded) std::abort();
  const auto again = DialogResponse::fromJSONText(*encoded);
  if (!again || again->identifier != response->identifier || again->appId != response->appId ||
      again->targetVersion != response->targetVersion || again->url != response->url ||
      again->response != response->response) {
    std::abort();
  }
  // The log forms must not trip on anything decoded.
  if (response->response.description().empty() || response->response.reasonText().empty()) {
    std::abort();
  }
}

void checkDeferrals(std::string_view text) {
  const auto map = decodeDeferralMap(text);
  if (!map) return;
  const auto encoded = encodeDeferralMap(*map);
  if (!encoded) std::abort();
  const auto again = decodeDeferralMap(*encoded);
  if (!again || *again != *map) std::abort();
  for (const auto& [key, deferral] : *map) {
    if (!deferral.deferrals) continue;
    for (const auto& detail : *deferral.deferrals) {
      if (detail.description().empty()) std::abort();
    }
  }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  const std::string_view text(reinterpret_cast<const char*>(data), size);
  checkResponse(text);
  checkDeferrals(text);
  return 0;
}
