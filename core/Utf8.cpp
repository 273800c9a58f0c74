#include "core/Utf8.h"

#include <unicode/utf8.h>

#include <cstdint>

namespace velmo::core {

bool isValidUtf8(std::string_view bytes) {
  const auto* text = reinterpret_cast<const std::uint8_t*>(bytes.data());
  const auto length = static_cast<std::int64_t>(bytes.size());
  for (std::int64_t at = 0; at < length;) {
    UChar32 character = 0;
    U8_NEXT(text, at, length, character);
    if (character < 0) return false;
  }
  return true;
}

}  // namespace velmo::core
