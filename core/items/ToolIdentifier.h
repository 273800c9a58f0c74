#pragma once

#include <cstddef>
#include <string>
#include <string_view>
#include <vector>

#include "core/logging/CustomLogger.h"

namespace velmo::core {

// The one rule for every string the agent puts on the tool's command line as
// a catalogue ID (an item's id, a dialog response's appId and identifier, the
// IDs of the run policy): 1 to 128 characters of A-Z a-z 0-9 . _ + -, the
// first one a letter, a digit or '_'. Catalogue labels look like
// "googlechrome", "microsoft_teams", "notepad++" or "zoom.us"; the rule keeps
// out anything the tool could read as a flag ("-x", "--config=…") or a path
// ("../x"), and the NUL, blanks and control characters a notification can carry.
class ToolIdentifier {
 public:
  ToolIdentifier() = delete;

  // Longer than any catalogue label, short enough to bound a log line.
  static constexpr std::size_t kMaxLength = 128;

  static bool isValid(std::string_view text);

  // The valid IDs of a policy list, in order; one warning names each other
  // one, as it is left out of the command line.
  static std::vector<std::string> admitted(const std::vector<std::string>& ids,
                                           std::string_view key, const CustomLogger& logger);
};

}  // namespace velmo::core
