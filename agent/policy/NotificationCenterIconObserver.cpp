#include "agent/policy/NotificationCenterIconObserver.h"

#include "core/Lifetime.h"
#include "core/notifications/NotificationNames.h"

namespace velmo::agent::policy {

NotificationCenterIconObserver::NotificationCenterIconObserver(const Collaborators& collaborators)
    : collaborators_(collaborators),
      mdmChangeSubject_(
          {collaborators.mainExecutor, collaborators.clock, collaborators.distributedCenter},
          std::string(mdm::rawValue(mdm::ManagedDomain::velmoNotifier)), kQuietTime,
          [this] { startStep(&NotificationCenterIconObserver::changeStep); }) {
  logger_.debug("NotificationCenterIconObserver initialized");
}

std::shared_ptr<NotificationCenterIconObserver> NotificationCenterIconObserver::make(
    const Collaborators& collaborators) {
  std::shared_ptr<NotificationCenterIconObserver> observer(
      new NotificationCenterIconObserver(collaborators));
  observer->startStep(&NotificationCenterIconObserver::initialStep);
  return observer;
}

NotificationCenterIconObserver::~NotificationCenterIconObserver() {
  logger_.debug("NotificationCenterIconObserver deinitialized");
}

void NotificationCenterIconObserver::startStep(Step step) {
  core::startHolding(collaborators_.mainExecutor, weak_from_this(), logger_,
                     [step](NotificationCenterIconObserver& self) { return (self.*step)(); });
}

asio::awaitable<std::optional<std::string>> NotificationCenterIconObserver::readIcon() {
  std::string icon = co_await collaborators_.managedPrefs.string(
      "NotificationCenterIcon", mdm::ManagedDomain::velmoNotifier, "");
  co_return icon.empty() ? std::nullopt : std::optional<std::string>(std::move(icon));
}

asio::awaitable<void> NotificationCenterIconObserver::initialStep() {
  currentIcon_ = co_await readIcon();
  if (!currentIcon_) co_return;
  logger_.info("Applying initial NotificationCenterIcon: " + *currentIcon_);
  co_await apply(*currentIcon_);
}

asio::awaitable<void> NotificationCenterIconObserver::changeStep() {
  auto icon = co_await readIcon();
  if (icon == currentIcon_) co_return;
  currentIcon_ = icon;
  if (!icon) {
    logger_.debug("NotificationCenterIcon cleared; skipping icon update.");
    co_return;
  }
  logger_.info("NotificationCenterIcon changed; updating icon to: " + *icon);
  co_await apply(std::move(*icon));
}

asio::awaitable<void> NotificationCenterIconObserver::apply(std::string icon) {
  std::vector<std::string> arguments{
      "notifier",    "set-icon", "--icon", std::move(icon), "--restart-velmo-notifier",
      "--restart-nc"};
  const int result = co_await collaborators_.runner.run(std::move(arguments), std::nullopt);
  if (result != 0 && result != run::VelmoRunner::kNotStarted) {
    logger_.error("Failed to set Velmo app icon with exit code: " + std::to_string(result));
  }
}

}  // namespace velmo::agent::policy
