#include <gtest/gtest.h>

#include <nlohmann/json.hpp>

#include "core/GetHelpActionType.h"
#include "core/NotificationTargetView.h"
#include "core/PackageIntegrityPolicy.h"
#include "core/PlatformArchitecture.h"

namespace velmo::core {
namespace {

using nlohmann::json;

TEST(GetHelpActionType, CasesInOrderWithTheirNamesAndExamples) {
  struct Row {
    GetHelpActionType type;
    std::string_view raw, display, example;
  };
  const Row rows[] = {
      {GetHelpActionType::openURL, "openURL", "Open URL", "https://example.com"},
      {GetHelpActionType::openApp, "openApp", "Open Application", "/Applications/Example.app"},
      {GetHelpActionType::openFile, "openFile", "Open File", "~/Documents/Example.pdf"},
      {GetHelpActionType::runCommand, "runCommand", "Run Command", "echo \"Hello, World!\""}};
  ASSERT_EQ(std::size(rows), kAllGetHelpActionTypes.size());
  for (std::size_t i = 0; i < std::size(rows); ++i) {
    const auto& row = rows[i];
    SCOPED_TRACE(row.raw);
    EXPECT_EQ(kAllGetHelpActionTypes[i], row.type);
    EXPECT_EQ(rawValue(row.type), row.raw);
    EXPECT_EQ(getHelpActionTypeFromRawValue(row.raw), row.type);
    EXPECT_EQ(displayString(row.type), row.display);
    EXPECT_EQ(examplePayload(row.type), row.example);
    EXPECT_EQ(json(row.type), json(row.raw));
    EXPECT_EQ(json(row.raw).get<GetHelpActionType>(), row.type);
  }
}

TEST(NotificationTargetView, RawValuesAreHyphenatedWhereTheTableSaysSo) {
  const std::pair<NotificationTargetView, std::string_view> rows[] = {
      {NotificationTargetView::available, "available"},
      {NotificationTargetView::history, "history"},
      {NotificationTargetView::system, "system"},
      {NotificationTargetView::getHelp, "get-help"},
      {NotificationTargetView::openMenuBarSystemPreferences, "open-menu-bar-system-preferences"}};
  for (const auto& [view, raw] : rows) {
    EXPECT_EQ(rawValue(view), raw);
    EXPECT_EQ(notificationTargetViewFromRawValue(raw), view) << raw;
  }
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

TEST(PlatformArchitecture, RawValuesAndJson) {
  for (const auto& [architecture, raw] : {std::pair{PlatformArchitecture::arm64, "arm64"},
                                          std::pair{PlatformArchitecture::x86_64, "x86_64"}}) {
    EXPECT_EQ(rawValue(architecture), raw);
    EXPECT_EQ(platformArchitectureFromRawValue(raw), architecture);
    EXPECT_EQ(json(architecture), json(raw));
    EXPECT_EQ(json(raw).get<PlatformArchitecture>(), architecture);
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
