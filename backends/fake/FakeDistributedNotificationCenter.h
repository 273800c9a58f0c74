#pragma once

#include <cstdint>
#include <map>
#include <set>
#include <string>
#include <vector>

#include <asio/any_io_executor.hpp>

#include "platform/DistributedNotificationCenter.h"

namespace velmo::platform::fake {

// Delivers posts to this process's observers through the executor, as the
// bus would, and keeps every post for assertions. `deliver` stands for a post
// by another process, made by the account it names; as on the bus, a post of
// one of `rootOnlyNames` from another account than root reaches nobody.
class FakeDistributedNotificationCenter final : public DistributedNotificationCenter {
 public:
  // This process runs as `processUid`: its own posts carry it.
  FakeDistributedNotificationCenter(asio::any_io_executor executor, std::uint32_t processUid,
                                    std::set<std::string, std::less<>> rootOnlyNames = {});

  void post(std::string_view name, std::optional<std::string> object = std::nullopt,
            std::optional<core::PlistDictionary> userInfo = std::nullopt) override;
  ObserverToken addObserver(std::string_view name, Handler handler) override;
  void removeObserver(ObserverToken token) override;

  // A post from outside this process, with its sender's account: delivered,
  // not recorded among posts().
  void deliver(DistributedNotification notification);
  void deliver(std::uint32_t senderUid, std::string_view name,
               std::optional<std::string> object = std::nullopt,
               std::optional<core::PlistDictionary> userInfo = std::nullopt);

  const std::vector<DistributedNotification>& posts() const { return posts_; }
  std::vector<DistributedNotification> postsNamed(std::string_view name) const;
  std::size_t observerCount(std::string_view name) const;

 private:
  struct Observer {
    std::string name;
    Handler handler;
  };

  void dispatch(DistributedNotification notification);

  asio::any_io_executor executor_;
  std::uint32_t processUid_;
  std::set<std::string, std::less<>> rootOnlyNames_;
  std::uint64_t nextToken_ = 1;
  std::uint64_t deliveredPosts_ = 0;
  std::map<std::uint64_t, Observer> observers_;
  std::vector<DistributedNotification> posts_;
};

}  // namespace velmo::platform::fake
