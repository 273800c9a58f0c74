#pragma once

#include <functional>
#include <string>

#include "platform/AgentStatusReader.h"
#include "platform/Clock.h"
#include "platform/FileManager.h"
#include "platform/Paths.h"
#include "platform/PreferenceStores.h"
#include "platform/UserDefaults.h"

namespace velmo::agent::console {

// What the console reads: the agent's files and stores, the running agent,
// the time and the zone. It writes nothing.
struct ConsoleInputs {
  const platform::Paths& paths;
  platform::FileManager& files;
  const platform::PreferenceStores& stores;
  const platform::UserDefaults& userDefaults;
  const platform::Clock& clock;
  const platform::AgentStatusReader& agent;
  std::function<std::string()> timeZone;
};

}  // namespace velmo::agent::console
