#include "backends/fake/FakeDistributedNotificationCenter.h"

#include <asio/post.hpp>

namespace velmo::platform::fake {

FakeDistributedNotificationCenter::FakeDistributedNotificationCenter(
    asio::any_io_executor executor, std::uint32_t processUid,
    std::set<std::string, std::less<>> rootOnlyNames)
    : executor_(std::move(executor)),
      processUid_(processUid),
      rootOnlyNames_(std::move(rootOnlyNames)) {}

void FakeDistributedNotificationCenter::post(std::string_view name,
                                             std::optional<std::string> object,
                                             std::optional<core::PlistDictionary> userInfo) {
  DistributedNotification notification{std::string(name), std::move(object), std::move(userInfo)};
  notification.senderUid = processUid_;
  posts_.push_back(notification);
  dispatch(std::move(notification));
}

void FakeDistributedNotificationCenter::deliver(std::uint32_t senderUid, std::string_view name,
                                                std::optional<std::string> object,
                                                std::optional<core::PlistDictionary> userInfo) {
  DistributedNotification notification{std::string(name), std::move(object), std::move(userInfo)};
  notification.senderUid = senderUid;
  deliver(std::move(notification));
}

void FakeDistributedNotificationCenter::deliver(DistributedNotification notification) {
  if (!notification.isFromRoot() && rootOnlyNames_.count(notification.name)) return;
  dispatch(std::move(notification));
}

void FakeDistributedNotificationCenter::dispatch(DistributedNotification notification) {
  notification.postNumber = ++deliveredPosts_;
  asio::post(executor_, [this, notification = std::move(notification)] {
    // Observers are looked up at delivery, so one removed meanwhile isn't called.
    std::vector<std::uint64_t> tokens;
    for (const auto& [token, observer] : observers_) {
      if (observer.name == notification.name) tokens.push_back(token);
    }
    for (std::uint64_t token : tokens) {
      auto found = observers_.find(token);
      if (found != observers_.end()) {
        Handler handler = found->second.handler;
        handler(notification);
      }
    }
  });
}

ObserverToken FakeDistributedNotificationCenter::addObserver(std::string_view name,
                                                             Handler handler) {
  const std::uint64_t token = nextToken_++;
  observers_.emplace(token, Observer{std::string(name), std::move(handler)});
  return {token};
}

void FakeDistributedNotificationCenter::removeObserver(ObserverToken token) {
  observers_.erase(token.value);
}

std::vector<DistributedNotification> FakeDistributedNotificationCenter::postsNamed(
    std::string_view name) const {
  std::vector<DistributedNotification> result;
  for (const auto& notification : posts_) {
    if (notification.name == name) result.push_back(notification);
  }
  return result;
}

std::size_t FakeDistributedNotificationCenter::observerCount(std::string_view name) const {
  std::size_t count = 0;
  for (const auto& [token, observer] : observers_) count += observer.name == name;
  return count;
}

}  // namespace velmo::platform::fake
