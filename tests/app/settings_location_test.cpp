#include "app/settings/settings_location.h"

#include <gtest/gtest.h>

#include <cstdlib>
#include <filesystem>
#include <string>

#include "app/settings/settings.h"
#include "tests/app/settings_test_util.h"

namespace trovix::app {
namespace {

using testing::TempFolder;
using testing::WriteWholeFile;

class StoreChoiceTest : public ::testing::Test {
 protected:
  StoreChoiceTest() {
    folders_.program_folder = dir_.path("program/");
    folders_.user_folder = dir_.path("config/velmora/");
    std::filesystem::create_directories(folders_.program_folder);
  }
  TempFolder dir_;
  StoreFolders folders_;
};

TEST_F(StoreChoiceTest, SwitchPathGetsIniAndTheProgramFolder) {
  struct Case {
    const char* text;
    std::string expected;
  } cases[] = {
      {"settings", folders_.program_folder + "settings.ini"},
      {"sub/my.settings", folders_.program_folder + "sub/my.settings.ini"},
      {"portable.INI", folders_.program_folder + "portable.INI"},
      {"/etc/trovix/site.ini", "/etc/trovix/site.ini"},
      {"/etc/trovix/site", "/etc/trovix/site.ini"},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.text);
    EXPECT_EQ(SettingsPathFromSwitch(c.text, folders_), c.expected);
  }
}

TEST_F(StoreChoiceTest, ChoosesSwitchThenUserFileThenProgramFileThenRegistry) {
  StoreChoice choice = ChooseStore("", folders_);
  EXPECT_EQ(choice.kind, StoreKind::kRegistry);
  EXPECT_EQ(choice.registry_database, folders_.user_folder + "registry.db");

  WriteWholeFile(folders_.program_folder + "trovix.ini", "");
  choice = ChooseStore("", folders_);
  EXPECT_EQ(choice.kind, StoreKind::kFile);
  EXPECT_EQ(choice.file_path, folders_.program_folder + "trovix.ini");

  WriteWholeFile(folders_.user_folder + "trovix.ini", "");
  EXPECT_EQ(ChooseStore("", folders_).file_path, folders_.user_folder + "trovix.ini");

  choice = ChooseStore("other", folders_);
  EXPECT_EQ(choice.kind, StoreKind::kFile);
  EXPECT_EQ(choice.file_path, folders_.program_folder + "other.ini");
}

TEST_F(StoreChoiceTest, SwitchingToTheRegistrySetsTheFileAside) {
  const std::string ini = folders_.user_folder + "trovix.ini";
  WriteWholeFile(ini, "[general]\nnThumbSize=64\n");
  WriteWholeFile(ini + ".bak", "old");
  ASSERT_EQ(ChooseStore("", folders_).kind, StoreKind::kFile);

  EXPECT_TRUE(SetSettingsFileAside(ini));
  EXPECT_FALSE(std::filesystem::exists(ini));
  EXPECT_EQ(testing::ReadWholeFile(ini + ".bak"), "[general]\nnThumbSize=64\n");
  EXPECT_EQ(ChooseStore("", folders_).kind, StoreKind::kRegistry);

  // And back: the per-user file, in a folder made for it.
  std::filesystem::remove_all(folders_.user_folder);
  std::string path = SettingsFileForSwitch(folders_);
  EXPECT_EQ(path, ini);
  EXPECT_TRUE(std::filesystem::is_directory(folders_.user_folder));
}

TEST(StoreFolders, UserFolderFollowsXdgConfigHome) {
  TempFolder dir;
  const char* old = std::getenv("XDG_CONFIG_HOME");
  std::string saved = old != nullptr ? old : "";
  setenv("XDG_CONFIG_HOME", dir.path("cfg").c_str(), 1);
  EXPECT_EQ(DefaultStoreFolders().user_folder, dir.path("cfg/velmora/"));
  setenv("XDG_CONFIG_HOME", "relative/is/ignored", 1);
  const char* home = std::getenv("HOME");
  if (home != nullptr && home[0] == '/') {
    EXPECT_EQ(DefaultStoreFolders().user_folder, std::string(home) + "/.config/velmora/");
  }
  if (old != nullptr) {
    setenv("XDG_CONFIG_HOME", saved.c_str(), 1);
  } else {
    unsetenv("XDG_CONFIG_HOME");
  }
  EXPECT_EQ(DefaultStoreFolders().program_folder.back(), '/');
}

}  // namespace
}  // namespace trovix::app
