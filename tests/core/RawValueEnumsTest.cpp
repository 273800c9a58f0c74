#include <gtest/gtest.h>

#include <nlohmann/json.hpp>

#include "core/GetHelpActionType.h"
#include "core/NotificationTargetView.h"
#include "core/PackageIntegrityPolicy.h"
#include "core/PlatformArchitecture.h"

namespace velmo::core {
namespace {

using nlohmann::json;

// Raw values whose spelling differs from the case name are the easy ones to get wrong.
TEST(RawValueEnums, HyphenatedAndCamelCasedRawValuesRoundTrip) {
  EXPECT_EQ(rawValue(NotificationTargetView::getHelp), "get-help");
  EXPECT_EQ(notificationTargetViewFromRawValue("open-menu-bar-system-preferences"),
            NotificationTargetView::openMenuBarSystemPreferences);
  EXPECT_EQ(json("openURL").get<GetHelpActionType>(), GetHelpActionType::openURL);
  EXPECT_EQ(json(GetHelpActionType::runCommand), json("runCommand"));
  EXPECT_EQ(json(PlatformArchitecture::x86_64), json("x86_64"));
  EXPECT_EQ(kAllGetHelpActionTypes.back(), GetHelpActionType::runCommand);
}

TEST(PackageIntegrityPolicy, RawValuesAndWhatEachChecks) {
  struct Row {
    PackageIntegrityPolicy policy;
    std::string_view raw;
    bool cached, downloaded;
  };
  const Row rows[] = {{PackageIntegrityPolicy::all, "all", true, true},
                      {PackageIntegrityPolicy::cachedOnly, "cachedOnly", true, false},
                      {PackageIntegrityPolicy::downloadOnly, "downloadOnly", false, true},
                      {PackageIntegrityPolicy::disabled, "disabled", false, false}};
  for (const auto& row : rows) {
    SCOPED_TRACE(row.raw);
    EXPECT_EQ(rawValue(row.policy), row.raw);
    EXPECT_EQ(packageIntegrityPolicyFromRawValue(row.raw), row.policy);
    EXPECT_EQ(checksCachedPackages(row.policy), row.cached);
    EXPECT_EQ(checksDownloadedPackages(row.policy), row.downloaded);
    EXPECT_EQ(json(row.policy), json(row.raw));
    EXPECT_EQ(json(row.raw).get<PackageIntegrityPolicy>(), row.policy);
  }
}

// Near misses of every table: case names, other case, untrimmed white space,
// other spellings, and JSON that isn't a string at all.
class RawValueNearMisses : public ::testing::TestWithParam<json> {};

TEST_P(RawValueNearMisses, BuildNothingAndFailToDecode) {
  const auto& value = GetParam();
  if (value.is_string()) {
    const auto raw = value.get<std::string>();
    EXPECT_EQ(getHelpActionTypeFromRawValue(raw), std::nullopt);
    EXPECT_EQ(notificationTargetViewFromRawValue(raw), std::nullopt);
    EXPECT_EQ(packageIntegrityPolicyFromRawValue(raw), std::nullopt);
    EXPECT_EQ(platformArchitectureFromRawValue(raw), std::nullopt);
  }
  EXPECT_THROW(value.get<GetHelpActionType>(), json::exception);
  EXPECT_THROW(value.get<PackageIntegrityPolicy>(), json::exception);
  EXPECT_THROW(value.get<PlatformArchitecture>(), json::exception);
}

INSTANTIATE_TEST_SUITE_P(Values, RawValueNearMisses,
                         ::testing::Values("", "openurl", "Open URL", "getHelp", "Get-Help", "ALL",
                                           "all ", "\tdisabled\n", "cachedonly", "ARM64", "x86-64",
                                           "arm64e", json(0), json(true), json(nullptr),
                                           json::array({"all"})));

}  // namespace
}  // namespace velmo::core
