#pragma once

#include <optional>
#include <string>
#include <string_view>

#include "core/time/TimeInterval.h"
#include "platform/FileManager.h"
#include "platform/Paths.h"

namespace velmo::agent::run {

// Spreads a fleet's runs over the first part of a window: each machine waits
// its own offset, the same across restarts, derived from its machine id, so
// no state is kept and an administrator can compute it:
//   offset = (first 8 bytes of SHA-256(machine id), big-endian) mod RunSplay
// in whole seconds, the machine id as the file holds it without its newline.
class RunSplay {
 public:
  // Longer spreads are cut to a day: beyond that runs would skip windows.
  static constexpr double kMaxSeconds = 86400.0;

  // 0 when `splaySeconds` is none, not above 0 or not finite, or there is no machine id.
  static core::TimeInterval offset(const std::optional<std::string>& machineId,
                                   std::optional<double> splaySeconds);
  // The machine id, trimmed; none when the file is missing or empty.
  static std::optional<std::string> readMachineId(const platform::FileManager& files,
                                                  const platform::Paths& paths);
};

}  // namespace velmo::agent::run
