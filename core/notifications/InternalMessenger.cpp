#include "core/notifications/InternalMessenger.h"

#include <atomic>
#include <memory>
#include <mutex>

namespace velmo::core {
namespace {

std::atomic<platform::DistributedNotificationCenter*> defaultCenter{nullptr};

// The object as JSON, or nothing when it is absent or not valid UTF-8 JSON
// text. The parser rejects ill-formed UTF-8, so no lossy conversion happens.
std::optional<nlohmann::json> parseObject(const std::optional<std::string>& object) {
  if (!object) return std::nullopt;
  nlohmann::json json = nlohmann::json::parse(*object, nullptr, /*allow_exceptions=*/false);
  if (json.is_discarded()) return std::nullopt;
  return json;
}

}  // namespace

InternalMessenger::InternalMessenger(platform::DistributedNotificationCenter& center)
    : center_(center) {}

InternalMessenger* InternalMessenger::shared() {
  static std::once_flag once;
  static std::unique_ptr<InternalMessenger> instance;
  std::call_once(once, [] {
    if (auto* center = defaultCenter.load(std::memory_order_acquire)) {
      instance = std::make_unique<InternalMessenger>(*center);
    }
  });
  return instance.get();
}

void InternalMessenger::setDefaultCenter(platform::DistributedNotificationCenter* center) {
  defaultCenter.store(center, std::memory_order_release);
}

void InternalMessenger::postText(std::string_view name, std::string text) const {
  center_.post(name, std::move(text), std::nullopt);
}

void InternalMessenger::logEncodeFailure(const std::exception& error) const {
  logger_.error(std::string("Failed to encode object: ") + error.what());
}

platform::ObserverToken InternalMessenger::observeJson(std::string_view name,
                                                       JsonHandler handler) const {
  // The closure holds its own logger copy, not this messenger, so the
  // registration may outlive the copy of the messenger that made it.
  return center_.addObserver(name, [logger = logger_, handler = std::move(handler)](
                                       const platform::DistributedNotification& notification) {
    const auto json = parseObject(notification.object);
    if (!json || !handler(*json)) {
      logger.error("Failed to convert notification object to string or decode it.");
    }
  });
}

void InternalMessenger::stopObserving(platform::ObserverToken token, std::string_view) const {
  center_.removeObserver(token);
}

}  // namespace velmo::core
