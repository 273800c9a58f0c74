#pragma once

#include <optional>
#include <string_view>

namespace velmo::core {

// Where the install of an update item stands, as the tool and the notifier
// report it. The agent only ever reads it; it performs no transition.
enum class InstallState {
  available,
  pendingQueue,
  queued,
  downloading,
  preparing,
  validating,
  terminating,
  installing,
  installed,
  failed,
};

// The raw value: the case name, such as "pendingQueue".
std::string_view rawValue(InstallState state);
// Case-sensitive; none for any other string.
std::optional<InstallState> installStateFromRawValue(std::string_view raw);

}  // namespace velmo::core
