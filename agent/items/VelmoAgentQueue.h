#pragma once

#include <deque>
#include <string>
#include <vector>

#include <asio/awaitable.hpp>

#include "agent/run/VelmoRunner.h"
#include "core/CustomLogger.h"
#include "core/Defaults.h"
#include "core/Executors.h"
#include "core/Published.h"
#include "core/UpdateItem.h"
#include "platform/Clock.h"
#include "platform/UserDefaults.h"

namespace velmo::agent::items {

// Installs single items on request, beside any run: items that ask for it go
// one at a time in order of arrival, all others start at once. Records what
// is in work, for the log; feeds nothing back. Lives on the main executor.
class VelmoAgentQueue {
 public:
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

  // The instance the composition root installed; tests make their own.
  static VelmoAgentQueue& shared();
  static void setShared(VelmoAgentQueue* instance);

  // Returns at once; the tool runs later. Call on the main executor.
  void enqueue(const core::UpdateItem& item);

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
  asio::awaitable<void> process(core::UpdateItem item);
  asio::awaitable<void> runSerialSide();
  void insert(core::Published<std::vector<core::UpdateItem>>& set, const core::UpdateItem& item);
  void remove(core::Published<std::vector<core::UpdateItem>>& set, const core::UpdateItem& item);

  Collaborators collaborators_;
  core::CustomLogger logger_{"VelmoAgentQueue"};
  core::Published<std::vector<core::UpdateItem>> _serialQueueItems{{}};
  core::Published<std::vector<core::UpdateItem>> _concurrentQueueItems{{}};
  // Items of the serial side not yet started, and whether one is in work.
  std::deque<core::UpdateItem> serialQueue_;
  bool serialBusy_ = false;
  core::Defaults<bool> _updateMAS;
  std::vector<core::Subscription> cancellables_;
  std::shared_ptr<bool> alive_ = std::make_shared<bool>(true);
};

}  // namespace velmo::agent::items
