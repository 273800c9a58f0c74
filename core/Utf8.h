#pragma once

#include <string>
#include <string_view>

namespace velmo::core {

// Whether the bytes are well-formed UTF-8 (no overlongs, surrogates or
// truncated sequences).
bool isValidUtf8(std::string_view bytes);

// The text as one inert log line: C0 controls, DEL and C1 controls become
// "\n", "\r", "\t" or "\xHH" ("\u0085" for a C1 character), and so does every
// byte that isn't part of well-formed UTF-8; everything else stays as it is.
// Messages quote what other accounts post, and a newline or an escape
// sequence in one must not forge a line or drive a terminal.
std::string escapedControls(std::string_view text);

}  // namespace velmo::core
