#include "agent/main/AgentServices.h"

#include <csignal>
#include <cstdlib>
#include <string>

#include "agent/main/BuildInfo.h"
#include "backends/linux/FileUnifiedLog.h"
#include "backends/linux/JournalUnifiedLog.h"
#include "core/Executors.h"
#include "core/logging/LogSinks.h"
#include "core/notifications/NotificationNames.h"

namespace velmo::agent {
namespace {

// Root's list of items for the companion: up to 1,000 items of a few hundred bytes.
constexpr std::size_t kLargestItemList = 1024 * 1024;

std::unique_ptr<platform::UnifiedLog> makeUnifiedLog(const platform::Clock& clock) {
  const char* file = std::getenv("VELMO_UNIFIED_LOG");
  if (file && *file) return std::make_unique<platform::linux::FileUnifiedLog>(file, clock);
  return std::make_unique<platform::linux::JournalUnifiedLog>();
}

}  // namespace

AgentServices::Logging::Logging(const platform::Clock& clock) : unified(makeUnifiedLog(clock)) {
  core::LogSinks::install({stdout, unified.get(), &clock, &recentErrors});
}

AgentServices::MainBus::MainBus(asio::any_io_executor executor, platform::Clock& clock)
    : connection(std::move(executor), clock) {
  connection.start();
}

AgentServices::AgentBus::AgentBus(platform::Clock& clock, asio::any_io_executor observers)
    : thread(clock),
      center(thread.connection(),
             {.rootOnlyNames = {core::NotificationName::rootOnly.begin(),
                                core::NotificationName::rootOnly.end()},
              .sizeLimits = {{std::string(core::NotificationName::addItemsToUIControllerQueue),
                              kLargestItemList}},
              .observerExecutor = std::move(observers),
              .servePost = true}),
      status(thread.connection()) {
  thread.start();
}

AgentServices::AgentServices(const platform::Paths& paths, platform::linux::PosixFileManager& files,
                             const platform::linux::PosixHost& host)
    : paths_(paths),
      files_(files),
      host_(host),
      userDefaults_(files_, paths_, kBundleIdentifier),
      reportDefaults_(files_, paths_, kBundleIdentifier) {
  awaitStopSignals();
  terminations_.start();
}

StartCommand::Collaborators AgentServices::collaborators() {
  return {.mainExecutor = executor_,
          .clock = clock_,
          .paths = paths_,
          .fileExecutor = fileThread_.get_executor(),
          .deferralsFileExecutor = deferralsFileThread_.get_executor(),
          .runner = runner_,
          .distributedCenter = agentBus_.center,
          .notificationCenter = notificationCenter_,
          .workspaceEvents = workspaceEvents_,
          .power = power_,
          .network = network_,
          .managedPrefs = managedPrefs_,
          .userDefaults = userDefaults_,
          .files = files_,
          .inventory = inventory_,
          .agentQueue = agentQueue_,
          .terminations = terminations_,
          .host = host_,
          .postLog = postLog_,
          .statusPublisher = agentBus_.status,
          .lifecycle = lifecycle_,
          .stop = stop_,
          .serviceManager = serviceManager_,
          .report = {.stores = reportStores_,
                     .userDefaults = reportDefaults_,
                     .recentErrors = logging_.recentErrors}};
}

// SIGTERM (the service manager's stop) and SIGINT start the agent's stop; a
// second one ends its drain.
void AgentServices::awaitStopSignals() {
  stopSignals_.async_wait([this](const std::error_code& error, int signal) {
    if (error) return;
    stop_.request(signal == SIGTERM ? "SIGTERM" : "SIGINT");
    awaitStopSignals();
  });
}

void AgentServices::run() {
  core::startTask(
      executor_,
      [](StartCommand& start, asio::io_context& context) -> asio::awaitable<void> {
        co_await start.run();
        context.stop();
      }(start_, context_),
      core::CustomLogger("StartCommand"));
  context_.run();
  // What the agent posted last goes out before it exits.
  agentBus_.thread.flush(std::chrono::seconds(2));
}

}  // namespace velmo::agent
