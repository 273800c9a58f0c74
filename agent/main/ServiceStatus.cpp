#include "agent/main/ServiceStatus.h"

#include <cctype>

#include "core/time/VelmoFormatters.h"

namespace velmo::agent {
namespace {

std::string counted(std::size_t count, const std::string& one, const std::string& many) {
  return std::to_string(count) + " " + (count == 1 ? one : many);
}

std::string runKind(const run::RunActivity& runs) {
  return runs.userInitiated ? "user-initiated Velmo Run" : "scheduled Velmo Run";
}

}  // namespace

ServiceStatus::ServiceStatus(platform::ServiceManager& manager,
                             const core::AgentLifecycle& lifecycle)
    : manager_(manager), lifecycle_(lifecycle) {}

void ServiceStatus::follow(core::Published<run::RunActivity>& runs,
                           core::Published<maintenance::MaintenanceActivity>& maintenance,
                           core::Published<std::size_t>& toolRuns,
                           core::Published<std::size_t>& items) {
  // Each subscription hears the value at once; the line waits for all four.
  cancellables_.push_back(runs.subscribe([this](const run::RunActivity& value) {
    runs_ = value;
    update();
  }));
  cancellables_.push_back(
      maintenance.subscribe([this](const maintenance::MaintenanceActivity& value) {
        maintenance_ = value;
        update();
      }));
  cancellables_.push_back(toolRuns.subscribe([this](std::size_t value) {
    toolRuns_ = value;
    update();
  }));
  cancellables_.push_back(items.subscribe([this](std::size_t value) {
    items_ = value;
    update();
  }));
}

std::string ServiceStatus::line(const run::RunActivity& runs,
                                const maintenance::MaintenanceActivity& maintenance,
                                std::size_t items) {
  std::string text;
  if (runs.inProgress) {
    text = runKind(runs);
    text[0] = static_cast<char>(std::toupper(static_cast<unsigned char>(text[0])));
    text += " #" + std::to_string(runs.runCount + 1) + " in progress";
    if (runs.startedAt) text += " since " + core::VelmoFormatters::friendlyDate(*runs.startedAt);
    if (runs.pending) text += ", another pass asked for";
  } else if (runs.nextRunDate) {
    text = "Idle; next Velmo Run at " + core::VelmoFormatters::friendlyDate(*runs.nextRunDate);
  } else {
    text = "Idle; no Velmo Run planned";
  }
  if (maintenance.running) text += "; maintenance cycle running";
  return text + "; " +
         (items == 0 ? "no pending items" : counted(items, "pending item", "pending items")) + ".";
}

std::string ServiceStatus::busy(const run::RunActivity& runs,
                                const maintenance::MaintenanceActivity& maintenance,
                                std::size_t toolRuns) {
  std::string text;
  const auto add = [&text](const std::string& part) { text += (text.empty() ? "" : ", ") + part; };
  if (runs.inProgress) add("a " + runKind(runs));
  if (toolRuns > 0) add(counted(toolRuns, "tool run", "tool runs"));
  if (maintenance.running) add("a maintenance cycle");
  return text;
}

void ServiceStatus::update() {
  if (std::string now = busy(runs_, maintenance_, toolRuns_); now != busy_.value()) {
    busy_.set(std::move(now));
  }
  if (lifecycle_.stopping()) return;
  std::string fresh = line(runs_, maintenance_, items_);
  if (fresh == said_) return;
  said_ = std::move(fresh);
  manager_.status(said_);
}

}  // namespace velmo::agent
