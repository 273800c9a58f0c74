#pragma once

#include <exception>
#include <functional>
#include <optional>
#include <string>
#include <string_view>

#include <nlohmann/json.hpp>

#include "core/logging/CustomLogger.h"
#include "platform/DistributedNotificationCenter.h"

namespace velmo::core {

// Carries a value between the agent and its sibling programs as the object of
// a distributed notification: compact JSON text, user info none. Holds only a
// reference to the centre, so copies are cheap and share it; the centre must
// outlive every copy and every registration made through it.
class InternalMessenger {
 public:
  explicit InternalMessenger(platform::DistributedNotificationCenter& center);

  // Encodes `value` with its to_json. A value that can't be encoded (a
  // string that isn't UTF-8, say) is logged and nothing is posted.
  template <typename T>
  void post(std::string_view name, const T& value) const {
    std::string text;
    try {
      const nlohmann::json json = value;
      text = json.dump();
    } catch (const std::exception& error) {
      logEncodeFailure(error);
      return;
    }
    postText(name, std::move(text));
  }

  // Calls `handler` with each object posted under `name` that decodes as T
  // through its from_json. An absent, unparsable or ill-shaped object is
  // logged and dropped; the registration stays. The handler runs where the
  // centre delivers (the main executor).
  template <typename T>
  platform::ObserverToken observe(std::string_view name,
                                  std::function<void(const T&)> handler) const {
    return observeJson(name, [handler = std::move(handler)](const nlohmann::json& json) {
      std::optional<T> value;
      try {
        value.emplace(json.template get<T>());
      } catch (const std::exception&) {
        return false;
      }
      // Outside the try: a fault of the handler is no decoding error.
      handler(*value);
      return true;
    });
  }

  // The token alone identifies the registration; `name` keeps the call's
  // shape the same in all three programs.
  void stopObserving(platform::ObserverToken token, std::string_view name) const;

 private:
  // Returns false when the JSON doesn't have the expected shape.
  using JsonHandler = std::function<bool(const nlohmann::json&)>;

  void postText(std::string_view name, std::string text) const;
  void logEncodeFailure(const std::exception& error) const;
  platform::ObserverToken observeJson(std::string_view name, JsonHandler handler) const;

  platform::DistributedNotificationCenter& center_;
  CustomLogger logger_{"InternalMessenger"};
};

}  // namespace velmo::core
