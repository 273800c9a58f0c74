#pragma once

#include <filesystem>
#include <memory>
#include <string>
#include <variant>
#include <vector>

#include "platform/ChildProcess.h"

namespace velmo::platform {

struct LaunchFailure {
  std::string description;
  // The program is no place for root to start (owned or writable by another
  // account); the launcher has said so once for the episode.
  bool refused = false;
};

using LaunchResult = std::variant<std::unique_ptr<ChildProcess>, LaunchFailure>;

enum class StandardError {
  discard,  // To /dev/null.
  capture,  // Kept whole for ChildProcess::standardError(); the child never blocks on it.
};

// Spawns programs directly, without a shell. The child inherits the
// environment, working directory and standard input; its standard output goes
// to /dev/null, and its standard error too unless it is captured. Only a
// program that no account but root can change is started.
class ProcessLauncher {
 public:
  virtual ~ProcessLauncher() = default;
  virtual LaunchResult launch(const std::filesystem::path& executable,
                              const std::vector<std::string>& arguments,
                              StandardError standardError = StandardError::discard) = 0;
};

}  // namespace velmo::platform
