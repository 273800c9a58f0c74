#include "core/notifications/NotificationTargetView.h"

#include <array>
#include <utility>

namespace velmo::core {
namespace {

// Indexed by the enumerator's value.
constexpr std::array<std::pair<NotificationTargetView, std::string_view>, 5> kRawValues{{
    {NotificationTargetView::available, "available"},
    {NotificationTargetView::history, "history"},
    {NotificationTargetView::system, "system"},
    {NotificationTargetView::getHelp, "get-help"},
    {NotificationTargetView::openMenuBarSystemPreferences, "open-menu-bar-system-preferences"},
}};

}  // namespace

std::string_view rawValue(NotificationTargetView view) {
  return kRawValues[static_cast<std::size_t>(view)].second;
}

std::optional<NotificationTargetView> notificationTargetViewFromRawValue(std::string_view raw) {
  for (const auto& [view, name] : kRawValues) {
    if (name == raw) return view;
  }
  return std::nullopt;
}

}  // namespace velmo::core
