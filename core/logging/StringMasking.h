#pragma once

#include <string>
#include <string_view>

namespace velmo::core {

enum class MaskType { hash, redact };

// SHA-256 of the UTF-8 bytes, as 64 lower-case hex digits.
std::string sha256(std::string_view text);

// `redact` gives "REDACTED"; `hash` gives sha256(text).
std::string masked(std::string_view text, MaskType type);

}  // namespace velmo::core
