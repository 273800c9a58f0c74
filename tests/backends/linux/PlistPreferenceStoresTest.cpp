#include "backends/linux/PlistPreferenceStores.h"

#include <gtest/gtest.h>

#include <fstream>

#include "backends/linux/PlistUserDefaults.h"
#include "backends/linux/PosixFileManager.h"
#include "core/values/PropertyList.h"

namespace velmo::platform::linux {
namespace {

using core::PlistDictionary;
using core::PlistValue;

constexpr const char* kDomain = "com.marvenith.velmo-agent";

class PlistPreferenceStoresTest : public ::testing::Test {
 protected:
  void SetUp() override {
    char pattern[] = "/tmp/velmo-prefs-XXXXXX";
    paths_ = Paths(::mkdtemp(pattern));
  }
  void TearDown() override { std::filesystem::remove_all(paths_.root()); }

  void write(const std::filesystem::path& file, const PlistValue& root) {
    std::filesystem::create_directories(file.parent_path());
    std::ofstream(file) << *core::PropertyList::xml(root);
  }

  Paths paths_;
  PosixFileManager files_;
};

// Each read sees the files as they are on disk now.
TEST_F(PlistPreferenceStoresTest, UserDefaultsSearchManagedThenRootThenMachineKeyByKey) {
  PlistUserDefaults defaults(files_, paths_, kDomain);
  EXPECT_EQ(defaults.object("A"), std::nullopt);
  write(paths_.machinePreferencesFile(kDomain),
        PlistDictionary{{"A", "machine"}, {"B", "machine"}, {"C", "machine"}});
  EXPECT_EQ(defaults.object("A"), PlistValue("machine"));
  write(paths_.rootPreferencesFile(kDomain), PlistDictionary{{"A", "root"}, {"B", "root"}});
  write(paths_.managedPreferencesFile(kDomain), PlistDictionary{{"A", "managed"}});
  EXPECT_EQ(defaults.object("A"), PlistValue("managed"));
  EXPECT_EQ(defaults.object("B"), PlistValue("root"));
  EXPECT_EQ(defaults.object("C"), PlistValue("machine"));
  EXPECT_EQ(defaults.object("D"), std::nullopt);
}

TEST_F(PlistPreferenceStoresTest, WritesGoToRootsOwnStoreAndKeepItsOtherKeysOrSayWhyNot) {
  write(paths_.rootPreferencesFile(kDomain), PlistDictionary{{"Kept", 1}});
  PlistUserDefaults defaults(files_, paths_, kDomain);
  EXPECT_TRUE(defaults.setObject("UpdateChannel", "beta").ok());
  const PlistPreferenceStores stores(files_, paths_);
  EXPECT_EQ(stores.copyAllValues(kDomain),
            (PlistDictionary{{"Kept", 1}, {"UpdateChannel", "beta"}}));

  // A file where the store's folder belongs: the failure comes back to the caller.
  const auto folder = paths_.rootPreferencesFile("other.domain").parent_path();
  std::filesystem::remove_all(folder);
  std::ofstream(folder.string()) << "not a folder";
  const auto failed = PlistUserDefaults(files_, paths_, "other.domain").setObject("A", 1);
  ASSERT_TRUE(failed.error());
  EXPECT_EQ(failed.error()->code, ENOTDIR);
}

}  // namespace
}  // namespace velmo::platform::linux
