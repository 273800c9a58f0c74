// The composition root: checks the command line, answers the console
// commands, or builds the agent's services and hands them the main thread.

#include <sys/resource.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <iostream>
#include <variant>

#include "agent/console/ConsoleCommand.h"
#include "agent/main/AgentCommand.h"
#include "agent/main/AgentServices.h"
#include "agent/main/BuildInfo.h"
#include "backends/linux/PlistPreferenceStores.h"
#include "backends/linux/PlistUserDefaults.h"
#include "backends/linux/PosixFileManager.h"
#include "backends/linux/PosixHost.h"
#include "backends/linux/SdBusAgentStatusReader.h"
#include "backends/linux/SystemClock.h"
#include "core/logging/LogSinks.h"
#include "core/time/VelmoWindowPolicy.h"
#include "core/values/Bundle.h"

namespace {

using namespace velmo;

// `status` and `explain`: any user may run them; they read and never write.
int console(const agent::AgentCommand::Invocation& invocation, const platform::Paths& paths,
            platform::linux::PosixFileManager& files) {
  // The shared readers' log lines would only repeat what the answer says.
  static std::FILE* const discard = std::fopen("/dev/null", "w");
  core::LogSinks::install({discard ? discard : stderr, nullptr, nullptr});
  const platform::linux::SystemClock clock;
  const platform::linux::PlistPreferenceStores stores(files, paths);
  const platform::linux::PlistUserDefaults userDefaults(files, paths, agent::kBundleIdentifier);
  const platform::linux::SdBusAgentStatusReader reader;
  const bool terminal = isatty(STDOUT_FILENO) == 1 && !std::getenv("NO_COLOR");
  return agent::console::ConsoleCommand::run(invocation,
                                             {paths, files, stores, userDefaults, clock, reader,
                                              core::VelmoWindowPolicy::currentTimeZoneId},
                                             terminal, std::cout, std::cerr);
}

// Each open file counts against the soft limit, which is 1,024 by default;
// many senders at once (and their questions) must not use it up.
void raiseDescriptorLimit() {
  rlimit limit{};
  if (::getrlimit(RLIMIT_NOFILE, &limit) == 0 && limit.rlim_cur < limit.rlim_max) {
    limit.rlim_cur = limit.rlim_max;
    ::setrlimit(RLIMIT_NOFILE, &limit);
  }
}

}  // namespace

int main(int argc, char** argv) {
  // Line-buffered, so an administrator tailing the log file sees each line at once.
  std::setvbuf(stdout, nullptr, _IOLBF, 0);

  core::Bundle::setMain({agent::kBundleIdentifier, agent::kAgentVersion, agent::kAgentBuild});
  const platform::Paths paths = platform::Paths::fromEnvironment();
  platform::linux::PosixFileManager files;
  const platform::linux::PosixHost host;

  const auto parsed = agent::AgentCommand::parse(argc, argv, core::Bundle::main().versionString(),
                                                 std::cout, std::cerr);
  if (const auto* status = std::get_if<int>(&parsed)) return *status;
  const auto& invocation = std::get<agent::AgentCommand::Invocation>(parsed);
  if (invocation.kind != agent::AgentCommand::Invocation::Kind::start) {
    return console(invocation, paths, files);
  }
  const agent::AgentCommand::Environment environment{paths, files, host, std::cout, std::cerr};
  if (auto status = agent::AgentCommand::validate(environment)) return *status;

  raiseDescriptorLimit();
  agent::AgentServices services(paths, files, host);
  services.run();
  // The stop is over and what waited is saved; the objects above are left to
  // the exit, which no thread still in them would survive.
  std::exit(0);
}
