#pragma once

#include <filesystem>
#include <string>

#include <asio/awaitable.hpp>

#include "core/AgentLifecycle.h"
#include "core/time/TimeInterval.h"
#include "platform/Clock.h"
#include "platform/ProcessLauncher.h"

namespace velmo::agent::run {

// Runs the inventory command ("jamf recon") after a run, when policy asks.
// Its standard error is kept whole while it runs (it can never stall on it)
// and given back; nothing is logged here.
class InventoryUpdater {
 public:
  static constexpr int kTimedOut = 124;
  static constexpr int kLaunchFailed = -1;

  struct Result {
    int status;
    std::string text;
    bool operator==(const Result&) const = default;
  };

  // Once `lifecycle` stops, the command doesn't start, and at the end of the
  // stop's drain one still going is ended as at a time-out.
  InventoryUpdater(platform::ProcessLauncher& launcher, platform::Clock& clock,
                   std::filesystem::path program, core::AgentLifecycle* lifecycle = nullptr);

  // The command's status and standard error (empty when it isn't UTF-8); after
  // a time-out 124 and "jamf recon timed out after <n>s"; after a failed start
  // kLaunchFailed and "Failed to run process: <reason>".
  asio::awaitable<Result> runRecon(core::TimeInterval timeout) const;

 private:
  platform::ProcessLauncher& launcher_;
  platform::Clock& clock_;
  std::filesystem::path program_;
  core::AgentLifecycle* lifecycle_;
};

}  // namespace velmo::agent::run
