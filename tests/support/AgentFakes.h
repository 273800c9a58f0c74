#pragma once

#include <algorithm>
#include <memory>
#include <string>
#include <vector>

#include <asio/io_context.hpp>

#include "agent/runner/VelmoRunner.h"
#include "backends/fake/FakeDistributedNotificationCenter.h"
#include "backends/fake/FakeFileManager.h"
#include "backends/fake/FakePreferenceStores.h"
#include "backends/fake/FakeProcessLauncher.h"
#include "backends/fake/FakeUserDefaults.h"
#include "backends/fake/FakeWorkspaceEvents.h"
#include "backends/fake/VirtualClock.h"
#include "core/logging/PostLog.h"
#include "core/notifications/NotificationCenter.h"
#include "core/notifications/NotificationNames.h"
#include "mdm/ManagedPrefs.h"
#include "platform/Paths.h"
#include "tests/support/LogCapture.h"

namespace velmo::testing {

// The platform as the agent's unit tests see it: fakes on one virtual clock,
// a sandbox root, a tool that a fake launcher runs, and captured logs.
// Test fixtures inherit it next to ::testing::Test.
class AgentFakes {
 protected:
  // Work still parked on the loop (a run waiting for a child that never
  // ends, say) goes first, while the fakes it refers to still stand.
  ~AgentFakes() { context_.shutdown(); }

  // A loop whose pending work can be dropped before it is destroyed.
  class EventLoop : public asio::io_context {
   public:
    using asio::io_context::shutdown;
  };

  using Calls = std::vector<std::vector<std::string>>;

  std::unique_ptr<mdm::ManagedPrefs> makePrefs() {
    return std::make_unique<mdm::ManagedPrefs>(mdm::ManagedPrefs::Collaborators{
        context_.get_executor(), clock_, stores_, distributed_, notifications_, workspace_});
  }
  // Argument vectors of every launch, in order.
  Calls launchedArguments() const {
    Calls calls;
    for (const auto& launch : launcher_.launches()) calls.push_back(launch.arguments);
    return calls;
  }
  // Whether standard output (info and above) holds `text`, and how often.
  bool logged(const std::string& text) const { return loggedCount(text) > 0; }
  std::size_t loggedCount(const std::string& text) const {
    const std::string out = capture_.standardOutput();
    std::size_t count = 0;
    for (auto at = out.find(text); at != std::string::npos; at = out.find(text, at + 1)) ++count;
    return count;
  }
  // Debug lines that contain `text`.
  std::size_t debugCount(const std::string& text) const {
    const auto debugs = capture_.debugs();
    return static_cast<std::size_t>(std::count_if(
        debugs.begin(), debugs.end(),
        [&](const std::string& line) { return line.find(text) != std::string::npos; }));
  }

  EventLoop context_;
  platform::fake::VirtualClock clock_{context_};
  LogCapture capture_{&clock_};
  platform::Paths paths_{"/sandbox"};
  platform::fake::FakeFileManager files_;
  platform::fake::FakeUserDefaults defaults_;
  platform::fake::FakePreferenceStores stores_;
  // The agent runs as root; the bus refuses root's names from anyone else.
  platform::fake::FakeDistributedNotificationCenter distributed_{
      context_.get_executor(),
      0,
      {core::NotificationName::rootOnly.begin(), core::NotificationName::rootOnly.end()}};
  core::NotificationCenter notifications_;
  platform::fake::FakeWorkspaceEvents workspace_;
  platform::fake::FakeProcessLauncher launcher_{clock_};
  agent::run::VelmoRunner runner_{launcher_, clock_, "/tool/velmo"};
  core::PostLog postLog_{clock_, context_.get_executor()};
};

}  // namespace velmo::testing
