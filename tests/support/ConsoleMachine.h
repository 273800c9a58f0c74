#pragma once

#include <string>

#include <asio/io_context.hpp>

#include "agent/console/ConsoleInputs.h"
#include "backends/fake/FakeAgentStatusReader.h"
#include "backends/fake/FakeFileManager.h"
#include "backends/fake/FakePreferenceStores.h"
#include "backends/fake/FakeUserDefaults.h"
#include "backends/fake/VirtualClock.h"

namespace velmo::testing {

// A machine as the console reads it: files, stores and the agent all fakes,
// the clock virtual, windows judged in UTC unless a test says otherwise.
struct ConsoleMachine {
  agent::console::ConsoleInputs inputs() {
    return {paths, files, stores, defaults, clock, agent, [this] { return timeZone; }};
  }

  asio::io_context context;
  platform::fake::VirtualClock clock{context};
  platform::Paths paths{"/sandbox"};
  platform::fake::FakeFileManager files;
  platform::fake::FakeUserDefaults defaults;
  platform::fake::FakePreferenceStores stores;
  platform::fake::FakeAgentStatusReader agent;
  std::string timeZone = "UTC";
};

}  // namespace velmo::testing
