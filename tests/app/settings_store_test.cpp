#include "app/settings/settings_store.h"

#include <gtest/gtest.h>
#include <signal.h>
#include <sys/wait.h>
#include <unistd.h>

#include <string>
#include <vector>

#include "app/settings/registry_store.h"
#include "app/settings/settings_file_backend.h"
#include "tests/app/settings_test_util.h"

namespace trovix::app {
namespace {

using testing::ReadWholeFile;
using testing::TempFolder;
using testing::WriteWholeFile;

using SettingsStoreBoth = testing::BothStores;

TEST_P(SettingsStoreBoth, TypedValuesSurviveReopening) {
  {
    auto store = Open();
    SettingsSection s = store->Open("general", false);
    ASSERT_TRUE(s.IsOpen());
    EXPECT_EQ(s.WriteInt("nThumbSize", 128), kSettingsOk);
    EXPECT_EQ(s.WriteInt("rgbViewBgcol", 0xFFFFFFFF), kSettingsOk);
    EXPECT_EQ(s.WriteInt("binFlags", 0xDEADBEEB), kSettingsOk);  // any 32 bits are a value
    EXPECT_EQ(s.WriteString("szFileCountRule", "*.txt"), kSettingsOk);
    EXPECT_EQ(s.WriteBinary("binLastRule", std::vector<uint8_t>{1, 2, 3, 0}), kSettingsOk);
    EXPECT_EQ(s.WriteBinary("binEmpty", std::vector<uint8_t>{}), kSettingsOk);
    EXPECT_EQ(store->Commit(), kSettingsOk);
  }
  auto store = Open();
  EXPECT_TRUE(store->OpenProblem().empty());
  SettingsSection s = store->Open("GENERAL", true);
  EXPECT_EQ(s.GetInt("nthumbsize", 0), 128);
  EXPECT_EQ(s.GetFlags("rgbViewBgcol", 0), 0xFFFFFFFFu);
  EXPECT_EQ(s.GetFlags("binFlags", 0), 0xDEADBEEBu);
  EXPECT_EQ(s.GetString("szFileCountRule", ""), "*.txt");
  std::vector<uint8_t> block;
  EXPECT_EQ(s.ReadBinary("binLastRule", &block), kSettingsOk);
  EXPECT_EQ(block, (std::vector<uint8_t>{1, 2, 3, 0}));
  EXPECT_EQ(s.ReadBinary("binEmpty", &block), kSettingsOk);
  EXPECT_TRUE(block.empty());
}

TEST_P(SettingsStoreBoth, MissingValuesAndSmallBuffersAnswerWithStatus) {
  auto store = Open();
  SettingsSection w = store->Open("general", false);
  w.WriteBinary("binUpdate", std::vector<uint8_t>(12, 0x5A));
  SettingsSection s = store->Open("general", true);

  uint32_t value = 77;
  EXPECT_NE(s.ReadInt("absent", &value), kSettingsOk);
  EXPECT_EQ(value, 77u);
  EXPECT_EQ(s.GetInt("absent", -4), -4);
  std::string text;
  EXPECT_EQ(s.ReadString("absent", &text), kSettingsNotFound);

  uint8_t small[8];
  uint32_t length = sizeof small;
  EXPECT_EQ(s.ReadBinary("binUpdate", small, &length), kSettingsMoreData);
  EXPECT_EQ(length, 12u);
  length = sizeof small;
  EXPECT_EQ(s.ReadBinary("absent", small, &length), kSettingsNotFound);
  EXPECT_EQ(w.WriteBinary("binX", nullptr, 4), kSettingsBadData);
  EXPECT_EQ(s.WriteInt("x", 1), kSettingsNoStore) << "a read-only handle takes no writes";
}

TEST_P(SettingsStoreBoth, SubSectionsEnumerateAndDeleteWithTheirParent) {
  auto store = Open();
  for (int i = 0; i < 3; ++i) {
    store->Open("SavedSearch\\" + std::to_string(i), false).WriteString("szName", "n");
  }
  store->Open("SavedSearch\\1\\deeper", false).WriteInt("n", 1);
  store->Open("general", false).WriteInt("n", 1);
  store->Open("other", false).EnsureExists();
  EXPECT_EQ(store->Commit(), kSettingsOk);

  EXPECT_EQ(store->Open("SavedSearch", true).SubSections(),
            (std::vector<std::string>{"0", "1", "2"}));
  EXPECT_EQ(store->Open("", true).SubSections(),
            (std::vector<std::string>{"SavedSearch", "general", "other"}));
  EXPECT_TRUE(store->Open("other", true).ValueNames().empty());

  EXPECT_EQ(store->backend().DeleteSection("SavedSearch\\1"), kSettingsOk);
  EXPECT_EQ(store->Open("SavedSearch", true).SubSections(),
            (std::vector<std::string>{"0", "2"}));
  EXPECT_FALSE(store->backend().SectionExists("SavedSearch\\1\\deeper"));

  EXPECT_EQ(store->DeleteAllSections(), kSettingsOk);
  EXPECT_TRUE(store->Open("", true).SubSections().empty());
  EXPECT_EQ(store->Open("general", true).GetInt("n", 9), 9);
}

TEST_P(SettingsStoreBoth, DeleteValuesEmptiesTheSection) {
  auto store = Open();
  SettingsSection s = store->Open("File types", false);
  s.WriteString("audio files", "wav");
  s.WriteString("pictures", "png");
  EXPECT_EQ(s.ValueNames(), (std::vector<std::string>{"audio files", "pictures"}));
  EXPECT_EQ(s.DeleteValue("AUDIO FILES"), kSettingsOk);
  EXPECT_EQ(s.ValueNames(), std::vector<std::string>{"pictures"});
  EXPECT_EQ(s.DeleteValues(), kSettingsOk);
  EXPECT_TRUE(s.ValueNames().empty());
}

TROVIX_BOTH_STORES(SettingsStoreBoth);

TEST(SettingsFileStore, AbsentIntegerIsBadDataAndEqualsSignsBecomeUnderscores) {
  TempFolder dir;
  const std::string path = dir.path("trovix.ini");
  {
    auto store = SettingsStore::OpenFile(path);
    SettingsSection s = store->Open("File types", false);
    EXPECT_EQ(s.WriteString("a=b", "x"), kSettingsOk);
    uint32_t value;
    EXPECT_EQ(s.ReadInt("absent", &value), kSettingsBadData);
    store->Open("general", false).EnsureExists();
  }
  EXPECT_EQ(ReadWholeFile(path), "[File types]\na_b=x\n\n[general]\n@=\n");
  auto store = SettingsStore::OpenFile(path);
  EXPECT_EQ(store->Open("File types", true).GetString("a=b", ""), "x");
}

TEST(SettingsFileStore, BlockLimits) {
  TempFolder dir;
  auto store = SettingsStore::OpenFile(dir.path("trovix.ini"));
  SettingsSection s = store->Open("frame", false);
  std::vector<uint8_t> largest(32'767, 0xC3), too_large(32'768, 1);
  EXPECT_EQ(s.WriteBinary("binLastRule", too_large), kSettingsTooLarge);
  EXPECT_EQ(s.WriteBinary("binLastRule", largest), kSettingsOk);
  std::vector<uint8_t> back;
  EXPECT_EQ(s.ReadBinary("binLastRule", &back), kSettingsOk);
  EXPECT_EQ(back, largest);
}

TEST(SettingsFileStore, DamagedBlocksReadAsBadData) {
  TempFolder dir;
  const std::string path = dir.path("trovix.ini");
  WriteWholeFile(path, "[frame]\nbinA=0102FF\nbinB=01020\nbinC=zz\nbinD=1\nbinOk=010203\n");
  auto store = SettingsStore::OpenFile(path);
  SettingsSection s = store->Open("frame", true);
  std::vector<uint8_t> block;
  for (const char* name : {"binA", "binB", "binC", "binD"}) {
    SCOPED_TRACE(name);
    EXPECT_EQ(s.ReadBinary(name, &block), kSettingsBadData);
  }
  EXPECT_EQ(s.ReadBinary("binOk", &block), kSettingsOk);
  EXPECT_EQ(block, (std::vector<uint8_t>{1, 2}));
}

TEST(SettingsFileStore, KilledWriterLeavesThePreviousSettings) {
  TempFolder dir;
  const std::string path = dir.path("trovix.ini");
  const std::string before = "[general]\nnUsecount=7\n";
  WriteWholeFile(path, before);

  pid_t child = fork();
  ASSERT_GE(child, 0);
  if (child == 0) {
    SettingsStore store(StoreKind::kFile, MakeFileBackend(path, [](const std::string&) {
                          raise(SIGKILL);
                          return true;
                        }));
    store.Open("general", false).WriteInt("nUsecount", 8);
    store.Commit();
    _exit(0);  // not reached
  }
  int status = 0;
  ASSERT_EQ(waitpid(child, &status, 0), child);
  ASSERT_TRUE(WIFSIGNALED(status));
  EXPECT_EQ(WTERMSIG(status), SIGKILL);
  EXPECT_EQ(ReadWholeFile(path), before);

  // The next start reads the old settings and saves over the leftover cleanly.
  auto store = SettingsStore::OpenFile(path);
  EXPECT_EQ(store->Open("general", true).GetInt("nUsecount", 0), 7);
  store->Open("general", false).WriteInt("nUsecount", 9);
  EXPECT_EQ(store->Commit(), kSettingsOk);
  EXPECT_EQ(ReadWholeFile(path), "[general]\nnUsecount=9\n");
}

TEST(SettingsRegistryStore, WrongTypeReadsAsBadDataAndMissingSectionsAsNoStore) {
  TempFolder dir;
  auto store = SettingsStore::OpenRegistry(dir.path("registry.db"));
  SettingsSection s = store->Open("general", false);
  s.WriteString("nThumbSize", "128");
  s.WriteInt("szFileCountRule", 5);
  s.WriteInt("binUpdate", 5);
  uint32_t value = 1;
  std::string text;
  std::vector<uint8_t> block;
  EXPECT_EQ(s.ReadInt("nThumbSize", &value), kSettingsBadData);
  EXPECT_EQ(s.ReadString("szFileCountRule", &text), kSettingsBadData);
  EXPECT_EQ(s.ReadBinary("binUpdate", &block), kSettingsBadData);
  EXPECT_EQ(s.GetInt("nThumbSize", 96), 96);
  // A section never written opens read-only without a store behind it.
  SettingsSection missing = store->Open("never written", true);
  EXPECT_FALSE(missing.IsOpen());
  EXPECT_EQ(missing.ReadInt("x", &value), kSettingsNoStore);
}

TEST(SettingsRegistryStore, KeysLiveUnderTheRootAndKeepValueOrder) {
  TempFolder dir;
  const std::string db = dir.path("velmora/registry.db");
  {
    auto store = SettingsStore::OpenRegistry(db);
    SettingsSection s = store->Open("general\\", false);
    s.WriteInt("b", 1);
    s.WriteInt("a", 2);
    s.WriteInt("b", 3);  // an update keeps its place
  }
  RegistryStore raw(db);
  std::vector<std::string> keys;
  EXPECT_EQ(raw.EnumSubKeys("Software\\Velmorant Plc\\Trovix", &keys), kSettingsOk);
  EXPECT_EQ(keys, std::vector<std::string>{"general"});
  std::vector<RegistryValue> values;
  EXPECT_EQ(raw.EnumValues("software\\velmorant plc\\trovix\\GENERAL", &values), kSettingsOk);
  ASSERT_EQ(values.size(), 2u);
  EXPECT_EQ(values[0].name, "b");
  EXPECT_EQ(values[0].type, SettingsValueType::kInt32);
  EXPECT_EQ(values[0].data, std::string("\x03\x00\x00\x00", 4));
  EXPECT_EQ(raw.DeleteValues("Software\\Velmorant Plc\\Trovix\\general", SettingsValueType::kBinary),
            kSettingsOk);
  EXPECT_EQ(raw.EnumValues("Software\\Velmorant Plc\\Trovix\\general", &values), kSettingsOk);
  EXPECT_EQ(values.size(), 2u);
  EXPECT_EQ(raw.DeleteKeyTree("Software\\Velmorant Plc\\Nothing"), kSettingsNotFound);
}

TEST(SettingsRegistryStore, DamagedDatabaseIsSetAsideAndReplaced) {
  TempFolder dir;
  const std::string db = dir.path("registry.db");
  {
    auto store = SettingsStore::OpenRegistry(db);
    for (int i = 0; i < 200; ++i) {
      store->Open("s" + std::to_string(i), false).WriteString("szName", std::string(100, 'x'));
    }
  }
  // Cut the database in the middle of its pages, and in another case overwrite its header.
  const std::string whole = ReadWholeFile(db);
  ASSERT_GT(whole.size(), 8192u);
  // Each damaged copy is kept under its own number, with its log, and none is overwritten.
  int number = 0;
  for (const std::string& damaged :
       {whole.substr(0, whole.size() / 2 + 100), std::string(4096, '\x5A') + whole.substr(4096)}) {
    WriteWholeFile(db, damaged);
    const std::string log = "the log of copy " + std::to_string(number + 1);
    WriteWholeFile(db + "-wal", log);
    auto store = SettingsStore::OpenRegistry(db);
    ++number;
    const std::string aside = db + ".bad." + std::to_string(number);
    EXPECT_NE(store->OpenProblem().find(aside), std::string::npos) << store->OpenProblem();
    EXPECT_EQ(ReadWholeFile(aside + "-wal"), log);
    EXPECT_NE(store->OpenProblem().find(db), std::string::npos);
    EXPECT_EQ(store->Open("s1", true).GetString("szName", "default"), "default");
    // The new database keeps settings again.
    store->Open("general", false).WriteInt("n", 4);
    EXPECT_EQ(store->Commit(), kSettingsOk);
    EXPECT_EQ(store->Open("general", true).GetInt("n", 0), 4);
    EXPECT_EQ(ReadWholeFile(aside), damaged);
  }
  EXPECT_EQ(number, 2);
  EXPECT_TRUE(std::filesystem::exists(db + ".bad.1"));
}

TEST(SettingsRegistryStore, UnopenableDatabaseAnswersNoStore) {
  TempFolder dir;
  // A folder where the database file should be.
  std::filesystem::create_directories(dir.path("registry.db"));
  auto store = SettingsStore::OpenRegistry(dir.path("registry.db"));
  EXPECT_FALSE(store->OpenProblem().empty());
  SettingsSection s = store->Open("general", false);
  EXPECT_FALSE(s.IsOpen());
  EXPECT_EQ(s.WriteInt("x", 1), kSettingsNoStore);
  EXPECT_EQ(s.GetInt("x", 3), 3);
}

}  // namespace
}  // namespace trovix::app
