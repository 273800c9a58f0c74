#pragma once

#include <deque>
#include <memory>
#include <string>

#include <asio/awaitable.hpp>

#include "agent/run/ListedItems.h"
#include "agent/runner/VelmoRunner.h"
#include "core/logging/CustomLogger.h"
#include "core/time/TimeInterval.h"

namespace velmo::agent::run {

// Reconciles the listed items with the tool before a run's job: an item with
// nothing due leaves the list, and its deferrals go. Used on the main executor.
class ListedItemsComparison {
 public:
  static constexpr core::TimeInterval kCompareTimeout{60.0};
  // Exit statuses of `compare <id> --fail`.
  static constexpr int kCompareNothingDue = 0;
  static constexpr int kCompareUpdateAvailable = 57;

  // `uiController` is the run coordinator's link to the list, set once the UI
  // controller stands; `logger` is the coordinator's, for whom this speaks.
  ListedItemsComparison(VelmoRunner& runner, const std::weak_ptr<ListedItems>& uiController,
                        const core::CustomLogger& logger)
      : runner_(runner), uiController_(uiController), logger_(logger) {}

  asio::awaitable<void> compareListedItems();

 private:
  asio::awaitable<void> compareWorker(std::shared_ptr<std::deque<std::string>> pending);
  asio::awaitable<int> compareItem(std::string id, core::TimeInterval timeout);
  void handleCompareResult(const std::string& id, int exitCode);

  VelmoRunner& runner_;
  const std::weak_ptr<ListedItems>& uiController_;
  const core::CustomLogger& logger_;
};

}  // namespace velmo::agent::run
