#pragma once

#include <deque>
#include <functional>
#include <optional>
#include <string>
#include <unordered_set>
#include <vector>

#include <asio/awaitable.hpp>

#include "agent/runner/VelmoRunner.h"
#include "core/Executors.h"
#include "core/Lifetime.h"
#include "core/Published.h"
#include "core/items/UpdateItem.h"
#include "core/logging/CustomLogger.h"
#include "core/logging/LogBudget.h"
#include "platform/Clock.h"
#include "platform/UserDefaults.h"

namespace velmo::agent::items {

// Installs single items on request, beside any run: items that ask for it go
// one at a time in order of arrival, the others up to four at once. A request
// for an id already waiting or running joins it. Records what is in work, for
// the log; feeds nothing back. Lives on the main executor.
class VelmoAgentQueue {
 public:
  // Any account may ask for installs of listed items as often as it likes;
  // each run is a root process with its descriptors. Four side by side
  // already install a typical day's updates quickly.
  static constexpr std::size_t kMaxConcurrentRuns = 4;
  // Waiting items cost only memory, but a list that long is no user's doing.
  static constexpr std::size_t kMaxSerialWaiting = 256;
  // As many as the update items list can hold.
  static constexpr std::size_t kMaxConcurrentWaiting = 1000;

  struct Collaborators {
    core::Executor mainExecutor;
    platform::Clock& clock;
    platform::UserDefaults& userDefaults;
    run::VelmoRunner& runner;
  };

  explicit VelmoAgentQueue(const Collaborators& collaborators);
  ~VelmoAgentQueue();
  VelmoAgentQueue(const VelmoAgentQueue&) = delete;
  VelmoAgentQueue& operator=(const VelmoAgentQueue&) = delete;

  // Returns at once; the tool runs later. Call on the main executor.
  void enqueue(const core::UpdateItem& item);
  // A tool run of the concurrent side that isn't an item's install (an
  // active-interval update): it shares the side's bound and its merging by
  // id, with its own command line and time limit. `done` hears the exit
  // status once it ran. False, and nothing runs, when `id` is in work already
  // or too many wait.
  bool enqueueRun(const std::string& id, std::vector<std::string> arguments,
                  core::TimeInterval limit, std::function<void(int status)> done);

  // Items in work, one per id, in order of arrival.
  const std::vector<core::UpdateItem>& serialQueueItems() const {
    return _serialQueueItems.value();
  }
  const std::vector<core::UpdateItem>& concurrentQueueItems() const {
    return _concurrentQueueItems.value();
  }

  // The tool's words for one item.
  std::vector<std::string> arguments(const core::UpdateItem& item) const;

 private:
  // One run of the concurrent side: an item's install, or a command of its own.
  struct Work {
    core::UpdateItem item;
    std::vector<std::string> arguments{};  // Empty: the item's install.
    std::optional<core::TimeInterval> limit{};
    std::function<void(int)> done{};
  };

  asio::awaitable<void> process(Work work);
  // Runs `item`, then the waiting items of the serial side until none waits.
  asio::awaitable<void> runSerialSide(core::UpdateItem item);
  // Starts waiting items of the concurrent side while fewer than the most run.
  void startConcurrentRuns();
  void finish(core::Published<std::vector<core::UpdateItem>>& set, const core::UpdateItem& item);
  void dropped(const core::UpdateItem& item, const char* side, std::size_t waiting);
  void insert(core::Published<std::vector<core::UpdateItem>>& set, const core::UpdateItem& item);
  void remove(core::Published<std::vector<core::UpdateItem>>& set, const core::UpdateItem& item);

  Collaborators collaborators_;
  core::CustomLogger logger_{"VelmoAgentQueue"};
  core::Published<std::vector<core::UpdateItem>> _serialQueueItems{{}};
  core::Published<std::vector<core::UpdateItem>> _concurrentQueueItems{{}};
  core::LogBudget drops_{logger_, collaborators_.clock, collaborators_.mainExecutor};
  // Items of the serial side not yet started, and whether one is in work.
  std::deque<core::UpdateItem> serialQueue_;
  bool serialBusy_ = false;
  // Items of the concurrent side not yet started, and how many run.
  std::deque<Work> concurrentQueue_;
  std::size_t concurrentRuns_ = 0;
  // Ids waiting or running on either side.
  std::unordered_set<std::string> inWork_;
  std::vector<core::Subscription> cancellables_;
  core::Lifetime lifetime_;
};

}  // namespace velmo::agent::items
