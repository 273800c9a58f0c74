#pragma once

#include "platform/ProcessLauncher.h"

namespace velmo::platform::linux {

// posix_spawn with /dev/null for output; exits are awaited through a pidfd
// watched by the event loop, so no thread blocks on a child.
class PosixProcessLauncher final : public ProcessLauncher {
 public:
  LaunchResult launch(const std::filesystem::path& executable,
                      const std::vector<std::string>& arguments) override;
};

}  // namespace velmo::platform::linux
