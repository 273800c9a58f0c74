#pragma once

#include <map>
#include <mutex>
#include <string>

#include "core/logging/CustomLogger.h"
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
//
// Only root's programs start: the program and every folder above it, from
// `trustedRoot` down, must be root's alone (see TrustedExecutable); a refused
// program is logged once per episode, with the reason.
class PosixProcessLauncher final : public ProcessLauncher {
 public:
  explicit PosixProcessLauncher(std::filesystem::path trustedRoot);

  LaunchResult launch(const std::filesystem::path& executable,
                      const std::vector<std::string>& arguments,
                      StandardError standardError = StandardError::discard) override;

 private:
  std::filesystem::path trustedRoot_;
  core::CustomLogger logger_{"ProcessLauncher"};
  std::mutex mutex_;
  // The refusal last said for each program, until it starts again.
  std::map<std::string, std::string> refusals_;
};

}  // namespace velmo::platform::linux
