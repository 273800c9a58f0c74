#include "agent/items/VelmoAgentQueue.h"

#include <algorithm>
#include <cstdio>
#include <ctime>

#include "core/SubscriberOperators.h"
#include "mdm/PreferenceConversions.h"

namespace velmo::agent::items {
namespace {

// A date as the platform describes it by default: "2026-03-10 14:05:09 +0000".
std::string defaultDescription(platform::TimePoint date) {
  const std::time_t seconds =
      std::chrono::system_clock::to_time_t(std::chrono::floor<std::chrono::seconds>(date));
  std::tm utc{};
  gmtime_r(&seconds, &utc);
  char buffer[40];
  std::strftime(buffer, sizeof buffer, "%Y-%m-%d %H:%M:%S +0000", &utc);
  return buffer;
}

// ["a", "b"]
std::string idList(const std::vector<core::UpdateItem>& items) {
  std::string text = "[";
  for (const auto& item : items) {
    if (text.size() > 1) text += ", ";
    text += "\"" + item.id + "\"";
  }
  return text + "]";
}

}  // namespace

VelmoAgentQueue::VelmoAgentQueue(const Collaborators& collaborators)
    : collaborators_(collaborators) {
  using Items = std::vector<core::UpdateItem>;
  cancellables_.push_back(_serialQueueItems.subscribe(core::dropFirst<Items>(
      [this](const Items& items) { logger_.debug("Items in serial queue: " + idList(items)); })));
  cancellables_.push_back(
      _concurrentQueueItems.subscribe(core::dropFirst<Items>([this](const Items& items) {
        logger_.debug("Items in concurrent queue: " + idList(items));
      })));
}

VelmoAgentQueue::~VelmoAgentQueue() = default;

void VelmoAgentQueue::insert(core::Published<std::vector<core::UpdateItem>>& set,
                             const core::UpdateItem& item) {
  // `inWork_` already holds one request per id, so the item is not there yet.
  auto items = set.value();
  items.push_back(item);
  set.set(std::move(items));
}

void VelmoAgentQueue::remove(core::Published<std::vector<core::UpdateItem>>& set,
                             const core::UpdateItem& item) {
  auto items = set.value();
  std::erase(items, item);
  set.set(std::move(items));
}

void VelmoAgentQueue::enqueue(const core::UpdateItem& item) {
  if (inWork_.count(item.id)) {
    logger_.debug("Merged request for " + item.id + " into the one already in the queue.");
    return;
  }
  if (item.serialInstallRequired.value_or(false)) {
    if (serialQueue_.size() >= kMaxSerialWaiting) return dropped(item, "serial", kMaxSerialWaiting);
    inWork_.insert(item.id);
    insert(_serialQueueItems, item);
    logger_.debug("Adding serial-required update item to serial queue: " + item.id);
    if (serialBusy_) {
      serialQueue_.push_back(item);
    } else {
      serialBusy_ = true;
      core::startTask(collaborators_.mainExecutor, runSerialSide(item), logger_);
    }
    return;
  }
  if (concurrentQueue_.size() >= kMaxConcurrentWaiting) {
    return dropped(item, "concurrent", kMaxConcurrentWaiting);
  }
  inWork_.insert(item.id);
  insert(_concurrentQueueItems, item);
  logger_.debug("Adding concurrent-ready update item to concurrent queue: " + item.id);
  concurrentQueue_.push_back({item});
  startConcurrentRuns();
}

bool VelmoAgentQueue::enqueueRun(const std::string& id, std::vector<std::string> arguments,
                                 core::TimeInterval limit, std::function<void(int)> done) {
  if (inWork_.count(id)) {
    logger_.debug("Merged request for " + id + " into the one already in the queue.");
    return false;
  }
  core::UpdateItem item(id, id, "", std::nullopt, "", false, false);
  if (concurrentQueue_.size() >= kMaxConcurrentWaiting) {
    dropped(item, "concurrent", kMaxConcurrentWaiting);
    return false;
  }
  inWork_.insert(id);
  insert(_concurrentQueueItems, item);
  concurrentQueue_.push_back({std::move(item), std::move(arguments), limit, std::move(done)});
  startConcurrentRuns();
  return true;
}

void VelmoAgentQueue::dropped(const core::UpdateItem& item, const char* side, std::size_t waiting) {
  drops_.error(side, std::string("update items dropped from the full ") + side + " queue", [&] {
    return "Dropped update item " + item.id + ": " + std::to_string(waiting) +
           " items already wait for the " + side + " queue.";
  });
}

void VelmoAgentQueue::startConcurrentRuns() {
  while (concurrentRuns_ < kMaxConcurrentRuns && !concurrentQueue_.empty()) {
    ++concurrentRuns_;
    Work work = std::move(concurrentQueue_.front());
    concurrentQueue_.pop_front();
    core::startTask(
        collaborators_.mainExecutor,
        [](VelmoAgentQueue& queue, core::Lifetime::Token alive,
           Work work) -> asio::awaitable<void> {
          const core::UpdateItem item = work.item;
          co_await queue.process(std::move(work));
          if (!*alive) co_return;
          --queue.concurrentRuns_;
          queue.finish(queue._concurrentQueueItems, item);
          queue.startConcurrentRuns();
        }(*this, lifetime_.token(), std::move(work)),
        logger_);
  }
}

void VelmoAgentQueue::finish(core::Published<std::vector<core::UpdateItem>>& set,
                             const core::UpdateItem& item) {
  inWork_.erase(item.id);
  remove(set, item);
}

// Works through the serial side until it is empty: at most one tool run of
// that side exists at any time.
asio::awaitable<void> VelmoAgentQueue::runSerialSide(core::UpdateItem item) {
  const auto alive = lifetime_.token();
  for (;;) {
    // A named variable: GCC 12 destroys braced temporaries inside co_await twice.
    Work work{item};
    co_await process(std::move(work));
    if (!*alive) co_return;
    finish(_serialQueueItems, item);
    if (serialQueue_.empty()) break;
    item = std::move(serialQueue_.front());
    serialQueue_.pop_front();
  }
  serialBusy_ = false;
}

std::vector<std::string> VelmoAgentQueue::arguments(const core::UpdateItem& item) const {
  std::vector<std::string> words{"install", item.id, "--menu-bar-notification", "--user-initiated"};
  // Read as the platform reads a Boolean default: "YES", "true" and 2 all say yes.
  if (mdm::PreferenceConversions::boolForKey(collaborators_.userDefaults, "UpdateMAS")) {
    words.push_back("--update-mas");
  }
  return words;
}

asio::awaitable<void> VelmoAgentQueue::process(Work work) {
  if (!work.arguments.empty()) {
    const int status = co_await collaborators_.runner.run(std::move(work.arguments), work.limit);
    if (work.done) work.done(status);
    co_return;
  }
  const core::UpdateItem item = std::move(work.item);
  const auto alive = lifetime_.token();
  const platform::ElapsedPoint start = collaborators_.clock.elapsed();
  logger_.debug("Started processing queued update item: " + item.id + " at " +
                defaultDescription(collaborators_.clock.now()));
  const std::optional<core::TimeInterval> noLimit;
  const int status = co_await collaborators_.runner.run(arguments(item), noLimit);
  if (!*alive) co_return;
  if (status != 0 && status != run::VelmoRunner::kNotStarted) {
    logger_.error("Failed to process queued update item: " + item.id +
                  " with exit code: " + std::to_string(status));
  }
  const platform::ElapsedPoint end = collaborators_.clock.elapsed();
  char seconds[32];
  std::snprintf(seconds, sizeof seconds, "%.2f",
                std::max(0.0, std::chrono::duration_cast<core::TimeInterval>(end - start).count()));
  logger_.debug("Finished processing queued update item: " + item.id + " at " +
                defaultDescription(collaborators_.clock.now()));
  logger_.debug("Time taken to process queued update item " + item.id + ": " + seconds +
                " seconds");
}

}  // namespace velmo::agent::items
