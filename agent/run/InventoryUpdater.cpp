#include "agent/run/InventoryUpdater.h"

#include <variant>

#include "agent/runner/ProcessSupervisor.h"
#include "core/logging/Utf8.h"

namespace velmo::agent::run {

InventoryUpdater::InventoryUpdater(platform::ProcessLauncher& launcher, platform::Clock& clock,
                                   std::filesystem::path program, core::AgentLifecycle* lifecycle)
    : launcher_(launcher), clock_(clock), program_(std::move(program)), lifecycle_(lifecycle) {}

asio::awaitable<InventoryUpdater::Result> InventoryUpdater::runRecon(
    core::TimeInterval timeout) const {
  if (lifecycle_ && lifecycle_->stopping()) {
    co_return Result{kLaunchFailed, "Failed to run process: the agent is stopping"};
  }
  platform::LaunchResult launched =
      launcher_.launch(program_, {"recon"}, platform::StandardError::capture);
  if (auto* failure = std::get_if<platform::LaunchFailure>(&launched)) {
    co_return Result{kLaunchFailed, "Failed to run process: " + failure->description};
  }
  auto process = std::move(std::get<std::unique_ptr<platform::ChildProcess>>(launched));
  const platform::Duration limit = core::toDuration(timeout);
  const auto status = co_await ProcessSupervisor::supervise(*process, clock_, limit, lifecycle_);
  if (!status) {
    co_return Result{
        kTimedOut,
        "jamf recon timed out after " +
            std::to_string(std::chrono::duration_cast<std::chrono::seconds>(limit).count()) + "s"};
  }
  std::string text = process->standardError();
  if (!core::isValidUtf8(text)) text.clear();
  co_return Result{*status, std::move(text)};
}

}  // namespace velmo::agent::run
