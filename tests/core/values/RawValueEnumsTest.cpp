#include <gtest/gtest.h>

#include <nlohmann/json.hpp>

#include "core/PlatformArchitecture.h"
#include "core/deferrals/GetHelpActionType.h"
#include "core/items/PackageIntegrityPolicy.h"
#include "core/notifications/NotificationTargetView.h"

namespace velmo::core {
namespace {

using nlohmann::json;

// The tables are indexed by the enumerator's value: a case added out of order
// reads back as another. Raw values spelt unlike the case name get a check.
TEST(RawValueEnums, EveryCaseReadsBackAsItself) {
  for (const auto type : kAllGetHelpActionTypes) {
    EXPECT_EQ(json(type).get<GetHelpActionType>(), type);
  }
  for (const auto policy :
       {PackageIntegrityPolicy::all, PackageIntegrityPolicy::cachedOnly,
        PackageIntegrityPolicy::downloadOnly, PackageIntegrityPolicy::disabled}) {
    EXPECT_EQ(json(policy).get<PackageIntegrityPolicy>(), policy);
  }
  for (const auto view : {NotificationTargetView::available, NotificationTargetView::history,
                          NotificationTargetView::system, NotificationTargetView::getHelp,
                          NotificationTargetView::openMenuBarSystemPreferences}) {
    EXPECT_EQ(notificationTargetViewFromRawValue(rawValue(view)), view);
  }
  for (const auto architecture : {PlatformArchitecture::arm64, PlatformArchitecture::x86_64}) {
    EXPECT_EQ(json(architecture).get<PlatformArchitecture>(), architecture);
  }
  EXPECT_EQ(rawValue(NotificationTargetView::openMenuBarSystemPreferences),
            "open-menu-bar-system-preferences");
  EXPECT_EQ(json(PlatformArchitecture::x86_64), json("x86_64"));
}

}  // namespace
}  // namespace velmo::core
