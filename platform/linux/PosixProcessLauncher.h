#pragma once

#include "platform/ProcessLauncher.h"

namespace velmo::platform::linux {

// posix_spawn with /dev/null for output; exits are awaited through a pidfd
// watched by the event loop, so no thread blocks on a child. Captured
// standard error goes to an anonymous in-memory file, which a child can fill
// without ever waiting for a reader.
//
// Each child leads a process group of its own, so that a signal reaches
// whatever it started too, and only what it was given reaches it: the
// launcher marks every descriptor the agent inherited close-on-exec when it
// is made.
class PosixProcessLauncher final : public ProcessLauncher {
 public:
  PosixProcessLauncher();

  LaunchResult launch(const std::filesystem::path& executable,
                      const std::vector<std::string>& arguments,
                      StandardError standardError = StandardError::discard) override;
};

}  // namespace velmo::platform::linux
