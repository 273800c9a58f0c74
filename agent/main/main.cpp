// The composition root: builds the platform services, installs the logging
// sinks, checks the command line, and hands the main thread to the event loop.

#include <sys/resource.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <iostream>
#include <memory>
#include <variant>

#include <asio/io_context.hpp>
#include <asio/signal_set.hpp>
#include <asio/thread_pool.hpp>

#include "agent/console/ConsoleCommand.h"
#include "agent/main/AgentStop.h"
#include "agent/main/BuildInfo.h"
#include "agent/main/StartCommand.h"
#include "agent/run/AgentCommand.h"
#include "agent/run/InventoryUpdater.h"
#include "agent/run/VelmoRunner.h"
#include "core/Bundle.h"
#include "core/Executors.h"
#include "core/logging/LogSinks.h"
#include "core/logging/PostLog.h"
#include "core/notifications/InternalMessenger.h"
#include "core/notifications/NotificationCenter.h"
#include "core/notifications/NotificationNames.h"
#include "core/time/VelmoWindowPolicy.h"
#include "mdm/ManagedPrefs.h"
#include "platform/linux/FileUnifiedLog.h"
#include "platform/linux/JournalUnifiedLog.h"
#include "platform/linux/LogindWorkspaceEvents.h"
#include "platform/linux/ManagedPreferencesWatcher.h"
#include "platform/linux/PlistPreferenceStores.h"
#include "platform/linux/PlistUserDefaults.h"
#include "platform/linux/PosixFileManager.h"
#include "platform/linux/PosixHost.h"
#include "platform/linux/PosixProcessLauncher.h"
#include "platform/linux/ProcessConnectorTerminations.h"
#include "platform/linux/SdBusAgentObject.h"
#include "platform/linux/SdBusAgentStatusReader.h"
#include "platform/linux/SdBusConnection.h"
#include "platform/linux/SdBusNotificationCenter.h"
#include "platform/linux/SdBusThread.h"
#include "platform/linux/SdNotifyServiceManager.h"
#include "platform/linux/SystemClock.h"

namespace {

using namespace velmo;

std::unique_ptr<platform::UnifiedLog> makeUnifiedLog(const platform::Clock& clock) {
  const char* file = std::getenv("VELMO_UNIFIED_LOG");
  if (file && *file) return std::make_unique<platform::linux::FileUnifiedLog>(file, clock);
  return std::make_unique<platform::linux::JournalUnifiedLog>();
}

// `status` and `explain`: any user may run them; they read and never write.
int console(const agent::run::AgentCommand::Invocation& invocation, const platform::Paths& paths,
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

// SIGTERM (the service manager's stop) and SIGINT start the agent's stop; a
// second one ends its drain.
// Root's list of items for the companion: up to 1,000 items of a few hundred bytes.
constexpr std::size_t kLargestItemList = 1024 * 1024;

// Each open file counts against the soft limit, which is 1,024 by default;
// many senders at once (and their questions) must not use it up.
void raiseDescriptorLimit() {
  rlimit limit{};
  if (::getrlimit(RLIMIT_NOFILE, &limit) == 0 && limit.rlim_cur < limit.rlim_max) {
    limit.rlim_cur = limit.rlim_max;
    ::setrlimit(RLIMIT_NOFILE, &limit);
  }
}

void awaitStopSignals(asio::signal_set& signals, velmo::agent::AgentStop& stop) {
  signals.async_wait([&signals, &stop](const std::error_code& error, int signal) {
    if (error) return;
    stop.request(signal == SIGTERM ? "SIGTERM" : "SIGINT");
    awaitStopSignals(signals, stop);
  });
}

}  // namespace

int main(int argc, char** argv) {
  // Line-buffered, so an administrator tailing the log file sees each line at once.
  std::setvbuf(stdout, nullptr, _IOLBF, 0);

  core::Bundle::setMain({agent::kBundleIdentifier, agent::kAgentVersion, agent::kAgentBuild});
  const platform::Paths paths = platform::Paths::fromEnvironment();
  platform::linux::PosixFileManager files;
  const platform::linux::PosixHost host;

  const auto parsed = agent::run::AgentCommand::parse(
      argc, argv, core::Bundle::main().versionString(), std::cout, std::cerr);
  if (const auto* status = std::get_if<int>(&parsed)) return *status;
  const auto& invocation = std::get<agent::run::AgentCommand::Invocation>(parsed);
  if (invocation.kind != agent::run::AgentCommand::Invocation::Kind::start) {
    return console(invocation, paths, files);
  }
  const agent::run::AgentCommand::Environment environment{paths, files, host, std::cout, std::cerr};
  if (auto status = agent::run::AgentCommand::validate(environment)) return *status;

  raiseDescriptorLimit();
  platform::linux::SystemClock clock;
  const auto unifiedLog = makeUnifiedLog(clock);
  core::LogSinks::install({stdout, unifiedLog.get(), &clock});

  asio::io_context mainContext(1);
  const auto mainExecutor = mainContext.get_executor();
  // Before any thread starts: the signals are taken on the main executor.
  core::AgentLifecycle lifecycle;
  platform::linux::SdNotifyServiceManager serviceManager;
  agent::AgentStop stop({mainExecutor, clock, lifecycle, serviceManager});
  asio::signal_set stopSignals(mainContext, SIGTERM, SIGINT);
  awaitStopSignals(stopSignals, stop);

  // The bus is opened now; if it can't be, it is retried while everything
  // else goes on. Posts, the Post method and the agent's status have a
  // connection and a thread of their own, which reads whatever other
  // accounts send however busy the main executor is.
  platform::linux::SdBusConnection bus(mainExecutor, clock);
  bus.start();
  platform::linux::SdBusThread agentBus(clock);
  platform::linux::SdBusNotificationCenter distributedCenter(
      agentBus.connection(),
      {.rootOnlyNames = {core::NotificationName::rootOnly.begin(),
                         core::NotificationName::rootOnly.end()},
       .sizeLimits = {{std::string(core::NotificationName::addItemsToUIControllerQueue),
                       kLargestItemList}},
       .observerExecutor = mainExecutor,
       .servePost = true});
  // Every local user may read what the agent is doing; nobody can change it this way.
  platform::linux::SdBusAgentObject statusObject(agentBus.connection());
  agentBus.start();
  platform::linux::LogindWorkspaceEvents workspaceEvents(bus);
  core::NotificationCenter notificationCenter;
  core::InternalMessenger::setDefaultCenter(&distributedCenter);
  platform::linux::ManagedPreferencesWatcher preferencesWatcher(
      {mainExecutor, clock, paths, distributedCenter, notificationCenter});

  // The agent's standard user defaults, and the managed-preferences snapshot.
  platform::linux::PlistPreferenceStores preferenceStores(files, paths);
  platform::linux::PlistUserDefaults userDefaults(files, paths, agent::kBundleIdentifier);
  mdm::ManagedPrefs managedPrefs({mainExecutor, clock, preferenceStores, distributedCenter,
                                  notificationCenter, workspaceEvents});
  mdm::ManagedPrefs::setShared(&managedPrefs);

  // Root starts only programs that no other account can change, checked
  // from the root prefix down.
  platform::linux::PosixProcessLauncher launcher(paths.root());
  agent::run::VelmoRunner runner(launcher, clock, paths.toolExecutable(), &lifecycle);
  agent::run::InventoryUpdater inventory(launcher, clock, paths.inventoryTool(), &lifecycle);
  // File work of the update state file runs on a thread of its own, so a slow
  // disk never holds up the event loop.
  asio::thread_pool fileThread(1);
  // The deferrals file has its own, so that a flood of deferrals can't hold
  // up the update state file either.
  asio::thread_pool deferralsFileThread(1);
  core::PostLog postLog(clock, mainExecutor);
  agent::items::VelmoAgentQueue agentQueue({mainExecutor, clock, userDefaults, runner});
  agent::items::VelmoAgentQueue::setShared(&agentQueue);
  platform::linux::ProcessConnectorTerminations terminations(mainExecutor, clock);
  terminations.start();
  agent::StartCommand start({.mainExecutor = mainExecutor,
                             .clock = clock,
                             .paths = paths,
                             .fileExecutor = fileThread.get_executor(),
                             .deferralsFileExecutor = deferralsFileThread.get_executor(),
                             .runner = runner,
                             .distributedCenter = distributedCenter,
                             .notificationCenter = notificationCenter,
                             .workspaceEvents = workspaceEvents,
                             .managedPrefs = managedPrefs,
                             .userDefaults = userDefaults,
                             .files = files,
                             .inventory = inventory,
                             .agentQueue = agentQueue,
                             .terminations = terminations,
                             .host = host,
                             .postLog = postLog,
                             .statusPublisher = statusObject,
                             .lifecycle = lifecycle,
                             .stop = stop,
                             .serviceManager = serviceManager});

  core::startTask(
      mainExecutor,
      [](agent::StartCommand& start, asio::io_context& context) -> asio::awaitable<void> {
        co_await start.run();
        context.stop();
      }(start, mainContext),
      core::CustomLogger("StartCommand"));
  mainContext.run();
  // What the agent posted last goes out before it exits.
  agentBus.flush(std::chrono::seconds(2));
  // The stop is over and what waited is saved; the objects above are left to
  // the exit, which no thread still in them would survive.
  std::exit(0);
}
