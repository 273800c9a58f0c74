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
};

using LaunchResult = std::variant<std::unique_ptr<ChildProcess>, LaunchFailure>;

// Spawns programs directly, without a shell. The child inherits the
// environment, working directory and standard input; its standard output and
// standard error go to /dev/null.
class ProcessLauncher {
 public:
  virtual ~ProcessLauncher() = default;
  virtual LaunchResult launch(const std::filesystem::path& executable,
                              const std::vector<std::string>& arguments) = 0;
};

}  // namespace velmo::platform
