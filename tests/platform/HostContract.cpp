#include <filesystem>

#include "platform/Host.h"
#include "platform/PropertyList.h"
#include "tests/platform/World.h"

namespace platform {
namespace {

/// The tests' own program, whatever it is called.
std::string program() { return std::filesystem::path(testing::internal::GetArgvs()[0]).filename(); }

class Host : public contract::World {
 protected:
  std::string bundle() const { return folder() + "/Kiosk.app"; }

  void writeInformation(const Json& information) const {
    std::string error;
    const auto list = PropertyListWrite(information, PropertyListFormat::kXml, error);
    ASSERT_TRUE(list) << error;
    contract::WriteFile(bundle() + "/Contents/Info.plist", *list);
  }
};

TEST_F(Host, KnowsThePathItWasStartedBy) {
  const std::optional<std::string> path = HostExecutablePath(4096);
  ASSERT_TRUE(path);
  EXPECT_TRUE(path->ends_with(program())) << *path;
  EXPECT_EQ(HostExecutablePath(path->size() + 1), path);
  EXPECT_EQ(HostExecutablePath(path->size()), std::nullopt);
}

class HostName : public contract::ChangingWorld {};

TEST_F(HostName, IsThereWhenOneIsSet) {
  setComputerName(std::nullopt);
  EXPECT_EQ(HostComputerName(), std::nullopt);
  setComputerName("Foyer äöü");
  EXPECT_EQ(HostComputerName(), "Foyer äöü");
}

TEST_F(Host, ReadsABundle) {
  writeInformation({{"CFBundleExecutable", "Kiosk"}, {"CFBundleShortVersionString", "1.2"}});
  contract::WriteFile(bundle() + "/Contents/MacOS/Kiosk", "");
  const std::optional<HostBundle> found = HostBundleAt(bundle());
  ASSERT_TRUE(found);
  EXPECT_EQ(found->executablePath, bundle() + "/Contents/MacOS/Kiosk");
  EXPECT_EQ(found->shortVersion, "1.2");
}

TEST_F(Host, ReadsABundleThatLacksItsParts) {
  writeInformation({{"CFBundleExecutable", "Gone"}, {"CFBundleShortVersionString", 12}});
  const std::optional<HostBundle> found = HostBundleAt(bundle());
  ASSERT_TRUE(found);
  EXPECT_EQ(found->executablePath, std::nullopt);
  EXPECT_EQ(found->shortVersion, std::nullopt);
  EXPECT_TRUE(HostBundleAt(folder()));  // any folder is a bundle, if an empty one
}

TEST_F(Host, HasNoBundleWhereThereIsNoFolder) {
  EXPECT_FALSE(HostBundleAt(bundle()));
  contract::WriteFile(bundle(), "");
  EXPECT_FALSE(HostBundleAt(bundle()));
}

}  // namespace
}  // namespace platform
