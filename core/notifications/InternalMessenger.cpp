#include "core/notifications/InternalMessenger.h"

namespace velmo::core {
namespace {

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
