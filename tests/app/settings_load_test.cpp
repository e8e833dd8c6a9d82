#include "app/settings/settings.h"

#include <gtest/gtest.h>

#include <sstream>
#include <string>

#include "base/clock.h"
#include "tests/app/settings_test_util.h"

namespace trovix::app {
namespace {

using testing::ReadWholeFile;
using testing::TempFolder;
using testing::WriteWholeFile;

constexpr base::FileTime kNow = base::FileTimeFromUnix(1'700'000'000);

class SettingsLoad : public ::testing::Test {
 protected:
  SettingsLoad() : clock_(kNow) {
    folders_.program_folder = dir_.path("program/");
    folders_.user_folder = dir_.path("config/velmora/");
    env_.folders = folders_;
    env_.storage_mode = kStorageFile;
    env_.set_commander_ini = false;
    env_.diagnostics = &diagnostics_;
  }
  std::string Ini() const { return dir_.path("trovix.ini"); }
  Settings LoadFrom(const std::string& text) {
    WriteWholeFile(Ini(), text);
    return LoadSettings(*SettingsStore::OpenFile(Ini()), env_);
  }

  TempFolder dir_;
  base::ScopedFixedClock clock_;
  StoreFolders folders_;
  SettingsEnvironment env_;
  std::ostringstream diagnostics_;
};

TEST_F(SettingsLoad, EmptyStoreGivesEveryDefault) {
  env_.find_program = [](std::string_view name) {
    return name == "orbweave" ? std::string("/opt/orbweave") : std::string();
  };
  Settings s = LoadFrom("");
  // The values computed at loading; the constant defaults show in the saved file below.
  EXPECT_EQ(s.binFlags, kDefaultFlags & ~kFlagLongPathPrefix);
  EXPECT_EQ(s.nUsecount, 1u);
  EXPECT_EQ(s.binUpdate, kNow);
  EXPECT_EQ(s.binInstall, kNow);
  EXPECT_EQ(s.szPluginINI, folders_.user_folder + "tcplugins.ini");
  EXPECT_EQ(s.orbweavePath, "/opt/orbweave");
  ASSERT_EQ(s.fileTypes.size(), 8u);
  EXPECT_EQ(s.fileTypes[1].name, "documents");
  EXPECT_TRUE(diagnostics_.str().empty());
}

TEST_F(SettingsLoad, DefaultsFollowTheDesktop) {
  env_.show_all_hidden = true;
  env_.long_paths_enabled = false;
  env_.translation_loaded = true;
  env_.small_icon_width = 20;
  Settings s = LoadFrom("");
  EXPECT_EQ(s.binFlags, kDefaultFlagsShowAll | kFlagTranslation);
  EXPECT_EQ(s.nThumbSize, 115);  // 96 and four twentieths
  env_.shell_thumbnail_size = 200;
  EXPECT_EQ(LoadFrom("").nThumbSize, 200);
}

TEST_F(SettingsLoad, RangeRulesApplyOnReading) {
  struct Case {
    const char* line;
    int32_t thumb, chars;
    uint32_t extract;
  } cases[] = {
      {"nThumbSize=20\nnCharsAutoFilter=40\nnMaxStreamExtractSize=5000", 96, 12, 0},
      {"nThumbSize=600\nnCharsAutoFilter=-1\nnMaxStreamExtractSize=10000", 96, 0, 10000},
      {"nThumbSize=32\nnCharsAutoFilter=0\nnMaxStreamExtractSize=0", 32, 0, 0},
      {"nThumbSize=500\nnCharsAutoFilter=12\nnMaxStreamExtractSize=9999", 500, 12, 0},
      {"nThumbSize=abc\nnCharsAutoFilter=\nnMaxStreamExtractSize=x", 96, 0, 0},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.line);
    Settings s = LoadFrom(std::string("[general]\nbinVer=65536\n") + c.line + "\n");
    EXPECT_EQ(s.nThumbSize, c.thumb);
    EXPECT_EQ(s.nCharsAutoFilter, c.chars);
    EXPECT_EQ(s.nMaxStreamExtractSize, c.extract);
  }
}

TEST_F(SettingsLoad, StoredFlagsLoseTheBitsThatNeverPersist) {
  Settings s = LoadFrom(
      "[general]\nbinVer=65536\nbinFlags=-1\nbinSearchFlags=-1\nbinFileOpFlags=-1\n"
      "bSantasLittleHelper=0\nbPersistSettings=7\nnUsecount=41\n"
      "szTextViewerPath=viewer\nszPluginINI=/etc/plugins.ini\nszGrepExcludeTypes=PDF,Doc\n");
  EXPECT_EQ(s.binFlags, ~(kFlagLongPathPrefix | kFlagBalloonHelp));
  EXPECT_EQ(s.binSearchFlags, ~0x1000u);
  EXPECT_EQ(s.binFileOpFlags, ~33u);
  EXPECT_EQ(s.bPersistSettings, kStorageFile) << "out of range: the chosen mode stays";
  EXPECT_EQ(s.nUsecount, 42u);
  EXPECT_EQ(s.szTextViewerPath, folders_.program_folder + "viewer");
  EXPECT_EQ(s.szPluginINI, "/etc/plugins.ini");
  EXPECT_EQ(s.szGrepExcludeTypes, "pdf,doc");
}

TEST_F(SettingsLoad, OlderVersionRestartsCountAndDates) {
  const std::string blocks = "binUpdate=0100000000000000" "01\nbinInstall=0200000000000000" "02\n";
  Settings same = LoadFrom("[general]\nbinVer=65536\nnUsecount=5\n" + blocks);
  EXPECT_EQ(same.nUsecount, 6u);
  EXPECT_EQ(same.binUpdate, 1);
  EXPECT_EQ(same.binInstall, 2);
  Settings older = LoadFrom("[general]\nbinVer=65535\nnUsecount=5\n" + blocks);
  EXPECT_EQ(older.nUsecount, 1u);
  EXPECT_EQ(older.binUpdate, kNow);
  // A block of another size counts as missing.
  Settings odd = LoadFrom("[general]\nbinVer=65536\nbinUpdate=01020303\n");
  EXPECT_EQ(odd.binUpdate, kNow);
}

TEST_F(SettingsLoad, StoredFileTypesAreSortedAndLowerCased) {
  Settings s = LoadFrom("[File types]\nZips=zip,7z\nArchives=tar\n");
  ASSERT_EQ(s.fileTypes.size(), 2u);
  EXPECT_EQ(s.fileTypes[0].name, "archives");
  EXPECT_EQ(s.fileTypes[1].name, "zips");
}

TEST_F(SettingsLoad, UnreadableStoreIsReportedOnceAndDefaultsApply) {
  Settings s = LoadFrom(std::string("\0\0\0\xFF\xFE garbage [general] nThumbSize=64", 38));
  EXPECT_EQ(s.nThumbSize, 96);
  const std::string said = diagnostics_.str();
  EXPECT_NE(said.find(Ini()), std::string::npos);
  EXPECT_EQ(said.find('\n'), said.size() - 1) << "one line: " << said;
}

TEST_F(SettingsLoad, SaveWritesTheValuesInOrder) {
  Settings s = LoadFrom("");
  s.fileTypes = {{"documents", "txt"}};
  SaveOptions options;
  options.save_lists = [](SettingsStore& store) {
    store.Open("SavedSearch\\0", false).WriteString("szName", "mine");
  };
  auto store = SettingsStore::OpenFile(Ini());
  EXPECT_EQ(SaveSettings(*store, s, env_, options), kSettingsOk);
  const std::string p = folders_.user_folder;
  // kNow as a little-endian file time, then the checksum byte.
  EXPECT_EQ(ReadWholeFile(Ini()),
            "[general]\n"
            "bPersistSettings=2\n"
            "binFlags=2097154\n"
            "bin1OffNotify=0\n"
            "nUsecount=1\n"
            "binVer=65536\n"
            "binUpdate=00006DC64717DA01" "6C\n"
            "binInstall=00006DC64717DA01" "6C\n"
            "nThumbSize=96\n"
            "bSantasLittleHelper=1\n"
            "nMaxStreamExtractSize=3145728\n"
            "binSearchFlags=8\n"
            "binFileOpFlags=0\n"
            "szTextViewerPath=xdg-open\n"
            "szFileCountRule=*\n"
            "szSimplePropertyList=System.ItemNameDisplay\n"
            "nCharsAutoFilter=3\n"
            "nDefCategory=0\n"
            "szPluginINI=" + p + "tcplugins.ini\n"
            "szGrepExcludeTypes=\n"
            "rgbViewBgcol=-1\n"
            "\n"
            "[File types]\n"
            "documents=txt\n"
            "\n"
            "[SavedSearch\\0]\n"
            "szName=mine\n");
  // What was saved loads back as it was.
  Settings back = LoadSettings(*SettingsStore::OpenFile(Ini()), env_);
  EXPECT_EQ(back.binUpdate, kNow);
  EXPECT_EQ(back.nUsecount, 2u);
  EXPECT_EQ(back.fileTypes.size(), 1u);
}

TEST_F(SettingsLoad, NotPersistingWritesOnlyThatChoice) {
  Settings s = LoadFrom("");
  s.bPersistSettings = kStorageNone;
  env_.translation_loaded = true;
  s.bUseTrans = 0;
  auto store = SettingsStore::OpenFile(Ini());
  EXPECT_EQ(SaveSettings(*store, s, env_), kSettingsOk);
  EXPECT_EQ(ReadWholeFile(Ini()), "[general]\nbUseTrans=0\nbPersistSettings=0\n");
  EXPECT_EQ(LoadSettings(*SettingsStore::OpenFile(Ini()), env_).bPersistSettings, kStorageNone);

  SaveOptions forced;
  forced.force = true;
  EXPECT_EQ(SaveSettings(*store, s, env_, forced), kSettingsOk);
  EXPECT_NE(ReadWholeFile(Ini()).find("rgbViewBgcol"), std::string::npos);
}

TEST_F(SettingsLoad, ResetForgetsEverything) {
  auto store = SettingsStore::OpenRegistry(dir_.path("registry.db"));
  env_.storage_mode = kStorageRegistry;
  Settings s = LoadSettings(*store, env_);
  s.nThumbSize = 250;
  ASSERT_EQ(SaveSettings(*store, s, env_), kSettingsOk);
  EXPECT_EQ(LoadSettings(*store, env_).nThumbSize, 250);
  EXPECT_EQ(ResetSettings(*store), kSettingsOk);
  EXPECT_EQ(LoadSettings(*store, env_).nThumbSize, 96);
  EXPECT_TRUE(store->Open("", true).SubSections().empty());
}

}  // namespace
}  // namespace trovix::app
