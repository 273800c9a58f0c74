#include "agent/main/InventoryReportWriter.h"

#include <unistd.h>

#include <any>
#include <utility>

#include <asio/post.hpp>
#include <asio/use_awaitable.hpp>

#include "agent/console/AgentFacts.h"
#include "agent/console/InventoryReport.h"
#include "agent/console/StatusView.h"
#include "core/notifications/NotificationNames.h"
#include "core/time/VelmoWindowPolicy.h"
#include "core/values/PropertyList.h"

namespace velmo::agent {
namespace {

// The running agent as the report sees it: this process, at the moment of the change.
class ThisAgent final : public platform::AgentStatusReader {
 public:
  explicit ThisAgent(platform::AgentStatus status) : status_(std::move(status)) {}
  std::optional<platform::RunningAgent> read() const override {
    return platform::RunningAgent{status_, ::getpid()};
  }

 private:
  platform::AgentStatus status_;
};

}  // namespace

// What one write needs, taken on the main executor; used on the file thread.
struct InventoryReportWriter::Job {
  platform::FileManager& files;
  const platform::Paths& paths;
  const platform::PreferenceStores& stores;
  const platform::UserDefaults& userDefaults;
  const platform::Clock& clock;
  ThisAgent agent;
  console::InventoryReport::Live live;

  // The failure's text; empty when the report was written.
  std::string run() {
    const std::filesystem::path file = paths.inventoryReportFile();
    if (const auto previous = files.readFile(file); previous.ok()) {
      const auto parsed = core::PropertyList::parse(previous.value());
      const auto* dictionary = parsed ? parsed->getIf<core::PlistDictionary>() : nullptr;
      if (dictionary) live.listedSince = console::InventoryReport::listedSince(*dictionary);
    }
    const auto facts =
        console::AgentFacts::gather({paths, files, stores, userDefaults, clock, agent,
                                     core::VelmoWindowPolicy::currentTimeZoneId});
    const auto report = console::InventoryReport::build(console::StatusView::from(facts), live);
    std::string failure;
    const auto text = core::PropertyList::xml(core::PlistValue(report), &failure);
    if (!text) return "Cannot encode the report: " + failure;
    if (const auto written = files.writeFileAtomically(file, *text); !written.ok()) {
      return written.error()->description;
    }
    return {};
  }
};

InventoryReportWriter::InventoryReportWriter(Collaborators collaborators)
    : collaborators_(std::move(collaborators)),
      retry_(logger_, collaborators_.clock, collaborators_.mainExecutor, "inventory report",
             [this] { changed(); }) {
  const auto each = [this](const platform::DistributedNotification&) { changed(); };
  auto& center = collaborators_.distributedCenter;
  for (const auto name : {core::NotificationName::uiControllerQueueChanged,
                          core::NotificationName::deferralsDidChange,
                          core::NotificationName::managementStatusChangedForDomains}) {
    tokens_.push_back(center.addObserver(name, each));
  }
  localToken_ = collaborators_.notificationCenter.addObserver(
      core::NotificationName::userDefaultsDidChange, [this](const std::any&) { changed(); });
}

InventoryReportWriter::~InventoryReportWriter() {
  lifetime_.end();
  for (const auto token : tokens_) collaborators_.distributedCenter.removeObserver(token);
  if (localToken_) collaborators_.notificationCenter.removeObserver(*localToken_);
}

void InventoryReportWriter::follow(const AgentStatusReporter& reporter,
                                   const run::VelmoRunCoordinator& coordinator,
                                   core::Published<run::RunActivity>& runs,
                                   core::Published<maintenance::MaintenanceActivity>& maintenance) {
  reporter_ = &reporter;
  coordinator_ = &coordinator;
  cancellables_.push_back(runs.subscribe([this](const run::RunActivity&) { changed(); }));
  cancellables_.push_back(
      maintenance.subscribe([this](const maintenance::MaintenanceActivity&) { changed(); }));
}

void InventoryReportWriter::changed() {
  // The first change of a burst arms the write; the rest join it.
  if (timer_) return;
  timer_ = collaborators_.clock.scheduleAfter(kFold, collaborators_.mainExecutor, [this] {
    timer_.reset();
    write();
  });
}

std::shared_ptr<InventoryReportWriter::Job> InventoryReportWriter::job() const {
  const auto& c = collaborators_;
  return std::make_shared<Job>(
      Job{c.files,
          c.paths,
          c.stores,
          c.userDefaults,
          c.clock,
          ThisAgent(reporter_ ? reporter_->status() : platform::AgentStatus{}),
          {.lastRun = coordinator_ ? coordinator_->lastRunSummary() : std::nullopt,
           .recentErrors = c.recentErrors.lines()}});
}

void InventoryReportWriter::write() {
  asio::post(collaborators_.fileExecutor,
             [job = job(), main = collaborators_.mainExecutor, alive = lifetime_.token(), this] {
               auto failure = job->run();
               asio::post(main, [alive, this, failure = std::move(failure)] {
                 if (*alive) finished(failure.empty(), failure);
               });
             });
}

void InventoryReportWriter::finished(bool written, const std::string& failure) {
  collaborators_.written();
  if (written) {
    retry_.succeeded();
    return;
  }
  retry_.failed("Failed to write the inventory report " +
                collaborators_.paths.inventoryReportFile().string() + ": " + failure);
}

asio::awaitable<void> InventoryReportWriter::flush() {
  if (timer_) {
    timer_.reset();
    write();
  }
  co_await asio::post(collaborators_.fileExecutor, asio::use_awaitable);
  co_await asio::post(collaborators_.mainExecutor, asio::use_awaitable);
}

}  // namespace velmo::agent
