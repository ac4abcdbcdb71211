#include "platform/Host.h"
#include "platform/simulated/MacFiles.h"
#include "tests/contract/SimulatedRoot.h"

namespace platform {
namespace {

constexpr char kBundle[] = "/Applications/Kiosk.app";

class Host : public contract::SimulatedRoot {
 protected:
  static void writeList(const std::string& path, const Json& value) {
    contract::WriteFile(path, "");
    EXPECT_TRUE(MacTree().writePropertyList(path, value, PropertyListFormat::kXml, 0644));
  }
};

TEST_F(Host, KnowsThePathItWasStartedBy) {
  const std::optional<std::string> path = HostExecutablePath(4096);
  ASSERT_TRUE(path);
  EXPECT_TRUE(path->ends_with("contract_tests")) << *path;
  EXPECT_EQ(HostExecutablePath(path->size() + 1), path);
  EXPECT_EQ(HostExecutablePath(path->size()), std::nullopt);
}

TEST_F(Host, HasAComputerNameWhenOneIsSet) {
  EXPECT_EQ(HostComputerName(), std::nullopt);
  writeList(kMacNetworkPreferences, {{"System", {{"System", {{"ComputerName", "Foyer"}}}}}});
  EXPECT_EQ(HostComputerName(), "Foyer");
  writeList(kMacNetworkPreferences, {{"System", {{"System", {{"ComputerName", 7}}}}}});
  EXPECT_EQ(HostComputerName(), std::nullopt);
}

TEST_F(Host, TellsItsSystemsVersion) {
  EXPECT_EQ(HostOperatingSystemVersionString(), "Version Unknown");
  writeList(kMacSystemVersion, {{"ProductVersion", "13.6"}, {"ProductBuildVersion", "22G120"}});
  EXPECT_EQ(HostOperatingSystemVersionString(), "Version 13.6 (Build 22G120)");
}

TEST_F(Host, ReadsABundle) {
  writeList(std::string(kBundle) + "/Contents/Info.plist",
            {{"CFBundleExecutable", "Kiosk"}, {"CFBundleShortVersionString", "1.2"}});
  contract::WriteFile(std::string(kBundle) + "/Contents/MacOS/Kiosk", "");
  const std::optional<HostBundle> bundle = HostBundleAt(kBundle);
  ASSERT_TRUE(bundle);
  EXPECT_EQ(bundle->executablePath, std::string(kBundle) + "/Contents/MacOS/Kiosk");
  EXPECT_EQ(bundle->shortVersion, "1.2");
}

TEST_F(Host, ReadsABundleThatLacksItsParts) {
  writeList(std::string(kBundle) + "/Contents/Info.plist",
            {{"CFBundleExecutable", "Gone"}, {"CFBundleShortVersionString", 12}});
  const std::optional<HostBundle> bundle = HostBundleAt(kBundle);
  ASSERT_TRUE(bundle);
  EXPECT_EQ(bundle->executablePath, std::nullopt);
  EXPECT_EQ(bundle->shortVersion, std::nullopt);
  EXPECT_TRUE(HostBundleAt("/private"));  // any folder is a bundle, if an empty one
}

TEST_F(Host, HasNoBundleWhereThereIsNoFolder) {
  EXPECT_FALSE(HostBundleAt(kBundle));
  contract::WriteFile(kBundle, "");
  EXPECT_FALSE(HostBundleAt(kBundle));
}

}  // namespace
}  // namespace platform
