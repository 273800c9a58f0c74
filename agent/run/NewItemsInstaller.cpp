#include "agent/run/NewItemsInstaller.h"

#include <optional>
#include <utility>

namespace velmo::agent::run {

std::string NewItemsInstaller::joinedIDs(const std::set<std::string>& ids) {
  std::string text;
  for (const auto& id : ids) {
    if (!text.empty()) text += ", ";
    text += id;
  }
  return text;
}

asio::awaitable<void> NewItemsInstaller::processInstallOrUpdateItems(std::set<std::string> ids) {
  if (ids.empty()) co_return;
  logger_.info("Processing new install or update items: " + joinedIDs(ids));
  std::vector<std::string> arguments{"install"};
  arguments.insert(arguments.end(), ids.begin(), ids.end());
  co_await runNewItems(std::move(arguments), joinedIDs(ids));
}

asio::awaitable<void> NewItemsInstaller::processUpdateOnlyItems(std::set<std::string> ids) {
  if (config_.updateAll || ids.empty()) co_return;
  logger_.info("Processing new update-only items: " + joinedIDs(ids));
  std::vector<std::string> arguments{"install"};
  arguments.insert(arguments.end(), ids.begin(), ids.end());
  arguments.push_back("--update-only");
  co_await runNewItems(std::move(arguments), joinedIDs(ids));
}

asio::awaitable<void> NewItemsInstaller::runNewItems(std::vector<std::string> arguments,
                                                     std::string ids) {
  if (co_await managedPrefs_.boolValue("EnableMenuBarApp", mdm::ManagedDomain::velmoNotifier,
                                       false)) {
    arguments.push_back("--menu-bar-notification");
  }
  const std::optional<core::TimeInterval> noLimit;
  const int result = co_await runner_.run(std::move(arguments), noLimit);
  if (result != 0 && result != VelmoRunner::kNotStarted) {
    logger_.error("Failed to process new update items: " + ids +
                  " with exit code: " + std::to_string(result));
  }
}

}  // namespace velmo::agent::run
