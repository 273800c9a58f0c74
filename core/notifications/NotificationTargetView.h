#pragma once

#include <optional>
#include <string_view>

namespace velmo::core {

// A view of the notifier that a notification can open. Several raw values are
// hyphenated and differ from the case names.
enum class NotificationTargetView {
  available,
  history,
  system,
  getHelp,
  openMenuBarSystemPreferences
};

std::string_view rawValue(NotificationTargetView view);
// Exact match, case included; none for anything else.
std::optional<NotificationTargetView> notificationTargetViewFromRawValue(std::string_view raw);

}  // namespace velmo::core
