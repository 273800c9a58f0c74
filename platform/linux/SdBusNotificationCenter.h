#pragma once

#include <map>
#include <string>

#include "core/CustomLogger.h"
#include "platform/DistributedNotificationCenter.h"
#include "platform/linux/SdBusConnection.h"

namespace velmo::platform::linux {

// Distributed notifications as D-Bus signals: each post is one signal
// /com/marvenith/velmo com.marvenith.velmo.Notifications.Post, and each
// observed name has one match rule with arg0 = name. Posts made while the
// connection is down are lost, as on a Mac when nobody listens.
class SdBusNotificationCenter final : public DistributedNotificationCenter {
 public:
  static constexpr const char* kObjectPath = "/com/marvenith/velmo";
  static constexpr const char* kInterface = "com.marvenith.velmo.Notifications";
  static constexpr const char* kMember = "Post";

  explicit SdBusNotificationCenter(SdBusConnection& connection);
  ~SdBusNotificationCenter() override;

  // Safe from any thread: the post moves to the main executor, in order.
  void post(std::string_view name, std::optional<std::string> object = std::nullopt,
            std::optional<core::PlistDictionary> userInfo = std::nullopt) override;
  // Main executor only.
  ObserverToken addObserver(std::string_view name, Handler handler) override;
  void removeObserver(ObserverToken token) override;

 private:
  struct NameEntry {
    SdBusConnection::MatchId match = 0;
    std::map<std::uint64_t, Handler> handlers;
  };

  void send(const DistributedNotification& notification);
  void deliver(sd_bus_message* message);

  SdBusConnection& connection_;
  core::CustomLogger logger_{"SdBusNotificationCenter"};
  std::uint64_t nextToken_ = 1;
  std::map<std::string, NameEntry, std::less<>> names_;
  std::map<std::uint64_t, std::string> tokenNames_;
};

}  // namespace velmo::platform::linux
