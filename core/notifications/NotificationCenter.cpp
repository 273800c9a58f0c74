#include "core/notifications/NotificationCenter.h"

#include <vector>

namespace velmo::core {

void NotificationCenter::post(std::string_view name, const std::any& object) {
  // The observers of this moment; each is looked up again before its call,
  // since an earlier one may have removed it.
  std::vector<std::uint64_t> tokens;
  for (const auto& [token, observer] : observers_) {
    if (observer.name == name) tokens.push_back(token);
  }
  for (std::uint64_t token : tokens) {
    const auto found = observers_.find(token);
    if (found == observers_.end()) continue;
    const std::shared_ptr<const Handler> handler = found->second.handler;
    if (*handler) (*handler)(object);
  }
}

platform::ObserverToken NotificationCenter::addObserver(std::string_view name, Handler handler) {
  const std::uint64_t token = nextToken_++;
  observers_.emplace(
      token, Observer{std::string(name), std::make_shared<const Handler>(std::move(handler))});
  return {token};
}

void NotificationCenter::removeObserver(platform::ObserverToken token) {
  observers_.erase(token.value);
}

}  // namespace velmo::core
