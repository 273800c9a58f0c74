#pragma once

#include <map>
#include <vector>

#include <asio/any_io_executor.hpp>

#include "platform/DistributedNotificationCenter.h"

namespace velmo::platform::fake {

// Delivers posts to this process's observers through the executor, as the
// bus would, and keeps every post for assertions. `deliver` stands for a post
// by another process.
class FakeDistributedNotificationCenter final : public DistributedNotificationCenter {
 public:
  explicit FakeDistributedNotificationCenter(asio::any_io_executor executor);

  void post(std::string_view name, std::optional<std::string> object = std::nullopt,
            std::optional<core::PlistDictionary> userInfo = std::nullopt) override;
  ObserverToken addObserver(std::string_view name, Handler handler) override;
  void removeObserver(ObserverToken token) override;

  // A post from outside this process: delivered, not recorded among posts().
  void deliver(DistributedNotification notification);
  void deliver(std::string_view name, std::optional<std::string> object = std::nullopt,
               std::optional<core::PlistDictionary> userInfo = std::nullopt) {
    deliver({std::string(name), std::move(object), std::move(userInfo)});
  }

  const std::vector<DistributedNotification>& posts() const { return posts_; }
  std::vector<DistributedNotification> postsNamed(std::string_view name) const;
  std::size_t observerCount(std::string_view name) const;

 private:
  struct Observer {
    std::string name;
    Handler handler;
  };

  asio::any_io_executor executor_;
  std::uint64_t nextToken_ = 1;
  std::uint64_t deliveredPosts_ = 0;
  std::map<std::uint64_t, Observer> observers_;
  std::vector<DistributedNotification> posts_;
};

}  // namespace velmo::platform::fake
