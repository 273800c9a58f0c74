#include "core/logging/VelmoFormatters.h"

#include <gtest/gtest.h>

#include <cstdlib>

namespace velmo::core {
namespace {

using std::chrono::seconds;

const TimePoint kT{seconds(1773151509)};  // 2026-03-10T14:05:09Z

TEST(VelmoFormatters, FriendlyDateIsMediumDateShortTimeInTheCurrentLocale) {
  // Locale and zone are captured at first use, which is this test's.
  ::setenv("TZ", "UTC", 1);
  ::setenv("LC_ALL", "en_US.UTF-8", 1);
  const std::string text = VelmoFormatters::friendlyDate(kT);
  EXPECT_EQ(text.rfind("Mar 10, 2026", 0), 0u) << text;
  EXPECT_NE(text.find("2:05"), std::string::npos) << text;
  EXPECT_NE(text.find("PM"), std::string::npos) << text;
  // Captured once: a later change of zone doesn't reach it.
  ::setenv("TZ", "Asia/Tokyo", 1);
  EXPECT_EQ(VelmoFormatters::friendlyDate(kT), text);
}

}  // namespace
}  // namespace velmo::core
