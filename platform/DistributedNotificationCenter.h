#pragma once

#include <cstdint>
#include <functional>
#include <optional>
#include <string>
#include <string_view>

#include "core/values/PlistValue.h"

namespace velmo::platform {

// A notification as it travels between processes: a name, an optional string
// object and an optional string-keyed dictionary of property-list values.
struct DistributedNotification {
  // Stands for a sender whose account could not be learnt: it is trusted as
  // little as any other account but root.
  static constexpr std::uint32_t kUnknownSender = UINT32_MAX;

  std::string name;
  std::optional<std::string> object;
  std::optional<core::PlistDictionary> userInfo;
  // The account of the process that posted it, as the bus vouches for it.
  // This process's own posts come from its own account. Unknown until
  // something vouches for it, so that a post nobody checked is trusted least.
  std::uint32_t senderUid = kUnknownSender;
  // The receiving centre's number for this post, from 1 up: every observer
  // of one post sees the same number. 0 where no centre numbered it.
  std::uint64_t postNumber = 0;

  bool isFromRoot() const { return senderUid == 0; }
};

struct ObserverToken {
  std::uint64_t value = 0;
  bool operator==(const ObserverToken&) const = default;
};

// The machine-wide notification centre shared with the sibling programs.
// Every post reaches every observer in every process once, in order, and
// uncoalesced, this process included. Handlers run on the main executor.
// Names that only root programs post reach no observer from any other account.
// Implementations never throw toward the caller: faults are logged.
class DistributedNotificationCenter {
 public:
  using Handler = std::function<void(const DistributedNotification&)>;

  virtual ~DistributedNotificationCenter() = default;

  virtual void post(std::string_view name, std::optional<std::string> object = std::nullopt,
                    std::optional<core::PlistDictionary> userInfo = std::nullopt) = 0;
  // Observes every post of `name`, whatever its object.
  virtual ObserverToken addObserver(std::string_view name, Handler handler) = 0;
  virtual void removeObserver(ObserverToken token) = 0;
};

}  // namespace velmo::platform
