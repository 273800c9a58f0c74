#pragma once

#include <any>
#include <cstdint>
#include <functional>
#include <map>
#include <memory>
#include <string>
#include <string_view>

#include "platform/DistributedNotificationCenter.h"

namespace velmo::core {

// The in-process notification centre: a plain registry of observers by name.
// Not thread-safe; used on the main executor only. The composition root owns
// the one instance and hands it out by reference.
class NotificationCenter {
 public:
  using Handler = std::function<void(const std::any& object)>;

  // Calls the observers of `name` synchronously, in the order they were
  // added. One removed meanwhile is not called; one added meanwhile waits for
  // the next post.
  void post(std::string_view name, const std::any& object = {});

  platform::ObserverToken addObserver(std::string_view name, Handler handler);
  // An unknown or already removed token is ignored.
  void removeObserver(platform::ObserverToken token);

 private:
  struct Observer {
    std::string name;
    // Shared, so that an observer that removes itself finishes its call.
    std::shared_ptr<const Handler> handler;
  };

  // Tokens grow, so the map's order is the order of registration.
  std::uint64_t nextToken_ = 1;
  std::map<std::uint64_t, Observer> observers_;
};

}  // namespace velmo::core
