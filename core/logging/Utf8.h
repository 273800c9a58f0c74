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

// The text without Unicode white space and newlines at either end (U+0009 to
// U+000D, U+0020, U+0085, U+00A0, U+2028, U+2029 and the other spaces), as
// the platform trims: a policy value pasted from a web page often ends in a
// no-break space.
std::string_view trimmedWhiteSpace(std::string_view text);

}  // namespace velmo::core
