#include "platform/Paths.h"

#include <gtest/gtest.h>

#include <cstdlib>

namespace velmo::platform {
namespace {

struct PathCase {
  std::filesystem::path (Paths::*path)() const;
  const char* absolute;
};

void PrintTo(const PathCase& c, std::ostream* os) { *os << c.absolute; }

class PathsUnderRoot : public ::testing::TestWithParam<PathCase> {};

TEST_P(PathsUnderRoot, ResolvesUnderThePrefixOrSlash) {
  EXPECT_EQ((Paths("/").*GetParam().path)(), GetParam().absolute);
  EXPECT_EQ((Paths("/tmp/sandbox").*GetParam().path)(),
            std::string("/tmp/sandbox") + GetParam().absolute);
}

INSTANTIATE_TEST_SUITE_P(
    FixedPaths, PathsUnderRoot,
    ::testing::Values(
        PathCase{&Paths::toolExecutable, "/Library/Application Support/Marvenith/Velmo/velmo"},
        PathCase{&Paths::toolCacheDirectory, "/Library/Application Support/Marvenith/Velmo/cache"},
        PathCase{&Paths::updateStateFile,
                 "/Library/Application Support/Marvenith/Velmo/UpdateState.json"},
        PathCase{&Paths::agentStateFile, "/Library/Preferences/com.marvenith.velmo-agent.plist"},
        PathCase{&Paths::deferralsFile, "/Library/Preferences/com.marvenith.velmo.deferrals.json"},
        PathCase{&Paths::logFile, "/var/log/marvenith-velmo.log"},
        PathCase{&Paths::toolLink, "/usr/local/bin/velmo"},
        PathCase{&Paths::inventoryTool, "/usr/local/bin/jamf"},
        PathCase{&Paths::managedPreferencesDirectory, "/Library/Managed Preferences"}));

TEST(Paths, PreferenceStoresOfADomain) {
  const Paths paths("/r");
  EXPECT_EQ(paths.managedPreferencesFile("com.marvenith.velmo-agent"),
            "/r/Library/Managed Preferences/com.marvenith.velmo-agent.plist");
  EXPECT_EQ(paths.rootPreferencesFile("d"), "/r/var/root/Library/Preferences/d.plist");
  EXPECT_EQ(paths.machinePreferencesFile("d"), "/r/Library/Preferences/d.plist");
}

TEST(Paths, EnvironmentRootWhenSetAndNotEmpty) {
  ::setenv("VELMO_ROOT", "/tmp/x/", 1);
  EXPECT_EQ(Paths::fromEnvironment().logFile(), "/tmp/x/var/log/marvenith-velmo.log");
  ::setenv("VELMO_ROOT", "", 1);
  EXPECT_EQ(Paths::fromEnvironment().logFile(), "/var/log/marvenith-velmo.log");
  ::unsetenv("VELMO_ROOT");
  EXPECT_EQ(Paths::fromEnvironment().root(), "/");
}

}  // namespace
}  // namespace velmo::platform
