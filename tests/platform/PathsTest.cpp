#include "platform/Paths.h"

#include <gtest/gtest.h>

#include <cstdlib>

namespace velmo::platform {
namespace {

// Each fixed path is one absolute path resolved under the root; the end-to-end
// scenarios find the files at those places under a sandbox root.
TEST(Paths, ResolveUnderThePrefixOrSlash) {
  EXPECT_EQ(Paths("/").toolExecutable(), "/Library/Application Support/Marvenith/Velmo/velmo");
  EXPECT_EQ(Paths("").logFile(), "/var/log/marvenith-velmo.log");
  EXPECT_EQ(Paths("/tmp/sandbox/").inventoryTool(), "/tmp/sandbox/usr/local/bin/jamf");
  const Paths paths("/r");
  EXPECT_EQ(paths.toolCacheDirectory(), "/r/Library/Application Support/Marvenith/Velmo/cache");
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
