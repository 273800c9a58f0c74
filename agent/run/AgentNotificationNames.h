#pragma once

#include <string_view>

namespace velmo::agent::run {

// Names that only the agent uses, beside the shared table of core/NotificationNames.h.
namespace AgentNotificationName {

// In-process only. The object is the UpdateItem value itself, not JSON: the
// run reconciliation posts it and the deferral manager drops that item's deferrals.
inline constexpr std::string_view removeDeferralsForItem =
    "com.marvenith.velmo.removeDeferralsForItem";

}  // namespace AgentNotificationName

}  // namespace velmo::agent::run
