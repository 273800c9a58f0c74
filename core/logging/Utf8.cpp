#include "core/logging/Utf8.h"

#include <unicode/uchar.h>
#include <unicode/utf8.h>

#include <algorithm>
#include <cstdint>
#include <cstdio>

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

std::string escapedControls(std::string_view text) {
  // Nearly every message is printable ASCII.
  if (std::all_of(text.begin(), text.end(), [](char c) { return c >= 0x20 && c < 0x7f; })) {
    return std::string(text);
  }
  const auto* bytes = reinterpret_cast<const std::uint8_t*>(text.data());
  const auto length = static_cast<std::int64_t>(text.size());
  std::string result;
  result.reserve(text.size());
  const auto escape = [&](const char* format, unsigned value) {
    char buffer[8];
    std::snprintf(buffer, sizeof buffer, format, value);
    result += buffer;
  };
  for (std::int64_t at = 0; at < length;) {
    const std::int64_t start = at;
    UChar32 character = 0;
    U8_NEXT(bytes, at, length, character);
    if (character < 0) {
      for (std::int64_t i = start; i < at; ++i) escape("\\x%02x", bytes[i]);
    } else if (character == '\n') {
      result += "\\n";
    } else if (character == '\r') {
      result += "\\r";
    } else if (character == '\t') {
      result += "\\t";
    } else if (character < 0x20 || character == 0x7f) {
      escape("\\x%02x", static_cast<unsigned>(character));
    } else if (character >= 0x80 && character <= 0x9f) {
      escape("\\u%04x", static_cast<unsigned>(character));
    } else {
      result.append(
          text.substr(static_cast<std::size_t>(start), static_cast<std::size_t>(at - start)));
    }
  }
  return result;
}

std::string_view trimmedWhiteSpace(std::string_view text) {
  // ICU steps backwards with 32-bit offsets; policy values are far shorter.
  if (text.size() > static_cast<std::size_t>(INT32_MAX)) return text;
  const auto* bytes = reinterpret_cast<const std::uint8_t*>(text.data());
  const auto length = static_cast<std::int32_t>(text.size());
  std::int32_t start = 0;
  while (start < length) {
    std::int32_t next = start;
    UChar32 character = 0;
    U8_NEXT(bytes, next, length, character);
    if (character < 0 || !u_isUWhiteSpace(character)) break;
    start = next;
  }
  std::int32_t end = length;
  while (end > start) {
    std::int32_t previous = end;
    UChar32 character = 0;
    U8_PREV(bytes, start, previous, character);
    if (character < 0 || !u_isUWhiteSpace(character)) break;
    end = previous;
  }
  return text.substr(static_cast<std::size_t>(start), static_cast<std::size_t>(end - start));
}

}  // namespace velmo::core
