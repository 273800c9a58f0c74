#pragma once

#include <string_view>

namespace velmo::core {

// Whether the bytes are well-formed UTF-8 (no overlongs, surrogates or
// truncated sequences).
bool isValidUtf8(std::string_view bytes);

}  // namespace velmo::core
