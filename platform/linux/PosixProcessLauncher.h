#pragma once

#include "platform/ProcessLauncher.h"

namespace velmo::platform::linux {

// posix_spawn with /dev/null for output; exits are awaited through a pidfd
// watched by the event loop, so no thread blocks on a child. Captured
// standard error goes to an anonymous in-memory file, which a child can fill
// without ever waiting for a reader.
class PosixProcessLauncher final : public ProcessLauncher {
 public:
  LaunchResult launch(const std::filesystem::path& executable,
                      const std::vector<std::string>& arguments,
                      StandardError standardError = StandardError::discard) override;
};

}  // namespace velmo::platform::linux
