#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <variant>

#include "platform/DistributedNotificationCenter.h"

struct sd_bus_message;

namespace velmo::platform::linux {

// The wire form of a distributed notification: the body `sasa{sv}` of the
// signal com.marvenith.velmo.Notifications.Post (also read as `sasa{ss}`).
// Property-list values map to s, b, x, d, as, av, a{sv} and ay; a date goes
// out as its ISO 8601 text, since the bus has no date type.
class SdBusNotificationCodec {
 public:
  SdBusNotificationCodec() = delete;

  // Appends the body to a signal under construction; gives the reason on failure.
  static std::optional<std::string> write(sd_bus_message* message,
                                          const DistributedNotification& notification);

  // Reads a received post's body, or says why it can't be used: among others,
  // an object and user info that take up more than `limit` bytes, which is
  // found before anything large is copied. `size`, when given, gets about
  // what the result takes up in memory.
  static std::variant<DistributedNotification, std::string> read(sd_bus_message* message,
                                                                 std::size_t limit = SIZE_MAX,
                                                                 std::size_t* size = nullptr);
};

}  // namespace velmo::platform::linux
