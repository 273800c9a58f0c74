#include "agent/run/ListedItemsComparison.h"

#include <algorithm>
#include <optional>
#include <utility>
#include <vector>

#include <asio/experimental/awaitable_operators.hpp>

namespace velmo::agent::run {

asio::awaitable<void> ListedItemsComparison::compareListedItems() {
  const auto controller = uiController_.lock();
  if (!controller) {
    logger_.warning("UIController reference is nil, skipping velmo comparison.");
    co_return;
  }
  // A snapshot: items listed later wait for the next run. Every item counts,
  // whatever its state.
  auto pending = std::make_shared<std::deque<std::string>>();
  for (const auto& item : controller->updateItems()) pending->push_back(item.id);
  // Three workers take the next id as soon as their comparison ends, so at
  // most three run at once; the run goes on when all three are done.
  using namespace asio::experimental::awaitable_operators;
  co_await (compareWorker(pending) && compareWorker(pending) && compareWorker(pending));
}

asio::awaitable<void> ListedItemsComparison::compareWorker(
    std::shared_ptr<std::deque<std::string>> pending) {
  while (!pending->empty()) {
    const std::string id = pending->front();
    pending->pop_front();
    const int exitCode = co_await compareItem(id, kCompareTimeout);
    handleCompareResult(id, exitCode);
  }
}

asio::awaitable<int> ListedItemsComparison::compareItem(std::string id,
                                                        core::TimeInterval timeout) {
  std::vector<std::string> arguments{"compare", std::move(id), "--fail"};
  const std::optional<core::TimeInterval> limit = timeout;
  co_return co_await runner_.run(std::move(arguments), limit);
}

void ListedItemsComparison::handleCompareResult(const std::string& id, int exitCode) {
  const auto controller = uiController_.lock();
  if (!controller) return;
  const auto& items = controller->updateItems();
  const auto found = std::find_if(items.begin(), items.end(),
                                  [&](const core::UpdateItem& item) { return item.id == id; });
  if (found == items.end()) {
    logger_.debug("Discarding compare result; item with ID " + id + " no longer present.");
    return;
  }
  switch (exitCode) {
    case kCompareNothingDue: {
      logger_.debug("Velmo compare completed successfully for " + id +
                    ", scheduling removal from list.");
      const core::UpdateItem item = *found;
      controller->scheduleRemoval(item, core::TimeInterval(0.0));
      controller->postRemoveDeferrals(item);
      return;
    }
    case kCompareUpdateAvailable:
      logger_.debug("Velmo compare indicates an update is available for " + id + ".");
      return;
    case VelmoRunner::kTimedOut:
      logger_.warning("Velmo compare timed out for " + id + "; leaving item in list.");
      return;
    case VelmoRunner::kNotStarted:
      return;
    default:
      logger_.error("Velmo compare failed for " + id + " with exit code " +
                    std::to_string(exitCode) + ".");
  }
}

}  // namespace velmo::agent::run
