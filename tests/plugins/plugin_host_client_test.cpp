// The plugin host with real plugin libraries (built from libraries/*.c) in real helper
// processes: every field type and its conversion, the full-text rule, the settings file, and
// what a plugin that crashes, hangs, overruns its buffer or tries to leave the sandbox costs.
#include "props/plugins/plugin_host_client.h"

#include <gtest/gtest.h>
#include <stdlib.h>
#include <unistd.h>

#include <map>
#include <string>

#include "tests/support/temp_tree.h"

namespace trovix::props {
namespace {

std::string Plugin(const char* name) { return std::string(TROVIX_TEST_PLUGIN_DIR) + "/" + name + ".wdx"; }

PluginHostOptions Options(int64_t timeout_ms = 5000, std::string ini = "") {
  PluginHostOptions options;
  options.program = TROVIX_PLUGIN_HOST_PATH;
  options.timeout_ms = timeout_ms;
  options.ini = std::move(ini);
  return options;
}

std::map<std::string, int32_t> FieldsByName(const PluginFieldList& list) {
  std::map<std::string, int32_t> by_name;
  for (const plugin::PluginField& f : list.fields) by_name[f.name] = f.index;
  return by_name;
}

struct Got {
  HRESULT status;
  PropValue value;
  PluginOutcome outcome;
};

Got Ask(PluginHostClient& client, const std::string& library, int32_t field, int32_t declared,
        const std::string& path) {
  Got got{};
  got.outcome = client.Value(library, field, declared, path, &got.value);
  got.status = got.outcome.status;
  return got;
}

TEST(PluginHostClient, ListsEveryUsableFieldTypeAndSkipsDatesAndTimesAlone) {
  PluginHostClient client(Options());
  const PluginFieldList& list = client.Fields(Plugin("allfields"));
  ASSERT_TRUE(list.loaded) << list.error;
  const auto by_name = FieldsByName(list);
  EXPECT_EQ(by_name.count("Date"), 0u);
  EXPECT_EQ(by_name.count("Time"), 0u);
  EXPECT_EQ(list.fields.size(), 14u);
  EXPECT_EQ(by_name.at("Stamp"), 8) << "a skipped field keeps the numbers of the later ones";
  EXPECT_EQ(list.fields[4].units, "red|green|blue");
  EXPECT_EQ(list.full_text, 0u);
  EXPECT_EQ(&client.Fields(Plugin("allfields")), &list) << "asked once, then kept";
}

TEST(PluginHostClient, ConvertsEachReturnedTypeAsTheInterfaceDefinesIt) {
  testing::TempTree tree({"doc.bin=x"});
  PluginHostClient client(Options());
  const std::string lib = Plugin("allfields");
  const std::string file = tree.path("doc.bin");
  struct Case {
    int32_t field;
    int32_t declared;
    uint16_t tag;
    std::string display;
  } cases[] = {
      {0, plugin::kFtNumeric32, VT_I4, "-123456"},
      {1, plugin::kFtNumeric64, VT_I8, "9000000000"},
      {2, plugin::kFtNumericFloating, VT_R8, "2.5"},
      {5, plugin::kFtBoolean, VT_BOOL, "Yes"},
      {6, plugin::kFtMultipleChoice, VT_LPWSTR, "green"},
      {7, plugin::kFtString, VT_LPWSTR, "caf\xc3\xa9"},
      {9, plugin::kFtStringW, VT_LPWSTR, "\xe6\x97\xa5\xe6\x9c\xac\xf0\x9f\x98\x80"},
      // A floating answer to a field declared as a 64-bit number, within 1e-7 above a whole
      // number, is that whole number; one further off stays a double.
      {10, plugin::kFtNumeric64, VT_I8, "41"},
      {15, plugin::kFtNumeric64, VT_R8, "41.5"},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.field);
    Got got = Ask(client, lib, c.field, c.declared, file);
    ASSERT_EQ(got.status, S_OK) << got.outcome.message;
    EXPECT_EQ(got.value.tag(), c.tag);
    EXPECT_EQ(got.value.ToDisplayText(), c.display);
  }
  Got stamp = Ask(client, lib, 8, plugin::kFtDateTime, file);
  ASSERT_EQ(stamp.status, S_OK);
  EXPECT_EQ(stamp.value.tag(), VT_FILETIME);
  EXPECT_EQ(stamp.value.AsInt64(), 132224930450000000LL);
  EXPECT_EQ(Ask(client, lib, 14, plugin::kFtString, file).status, S_FALSE) << "an empty string is no value";
  EXPECT_EQ(Ask(client, lib, 99, plugin::kFtString, file).status, S_FALSE) << "no such field";
}

TEST(PluginHostClient, GivesEveryPluginTheSettingsFileOnceAndSetsCommanderIni) {
  testing::TempTree tree({"tcplugins.ini=[x]", "doc.bin=x"});
  unsetenv("COMMANDER_INI");
  PluginHostClient client(Options(5000, tree.path("tcplugins.ini")));
  const std::string lib = Plugin("allfields");
  EXPECT_EQ(Ask(client, lib, 11, plugin::kFtString, tree.path("doc.bin")).value.text(), tree.path("tcplugins.ini"));
  EXPECT_EQ(Ask(client, lib, 12, plugin::kFtString, tree.path("doc.bin")).value.text(), tree.path("tcplugins.ini"));
  EXPECT_EQ(Ask(client, lib, 13, plugin::kFtNumeric32, tree.path("doc.bin")).value.AsInt64(), 1);

  // A variable the user set is passed on and left as it is.
  setenv("COMMANDER_INI", "/elsewhere/wincmd.ini", 1);
  PluginHostClient own(Options(5000, tree.path("tcplugins.ini")));
  EXPECT_EQ(Ask(own, lib, 12, plugin::kFtString, tree.path("doc.bin")).value.text(), "/elsewhere/wincmd.ini");
  unsetenv("COMMANDER_INI");
}

TEST(PluginHostClient, AFullTextFieldEndsTheListAndIsReadInChunks) {
  testing::TempTree tree({"doc.txt=x", "empty.txt=x"});
  PluginHostClient client(Options());
  const std::string lib = Plugin("fulltext");
  const PluginFieldList& list = client.Fields(lib);
  ASSERT_TRUE(list.loaded) << list.error;
  ASSERT_EQ(list.fields.size(), 2u) << "the field after the full text is never offered";
  EXPECT_EQ(list.fields[1].name, "Lines");
  EXPECT_EQ(list.full_text, 3u);

  std::string text;
  int pieces = 0;
  PluginOutcome outcome = client.Text(lib, 2, tree.path("doc.txt"), 10'000'000, [&](const std::string& piece) {
    text += piece;
    ++pieces;
    return true;
  });
  EXPECT_EQ(outcome.status, S_OK) << outcome.message;
  EXPECT_GT(pieces, 10);
  EXPECT_EQ(text.substr(0, 14), "line 0\nline 1\n");
  EXPECT_NE(text.find("line 2999\n"), std::string::npos);
  EXPECT_EQ(text.find("line 3000"), std::string::npos);

  // A reader that has enough stops the plugin, and the host stays usable.
  std::string head;
  outcome = client.Text(lib, 2, tree.path("doc.txt"), 10'000'000, [&](const std::string& piece) {
    head += piece;
    return false;
  });
  EXPECT_LT(head.size(), text.size());
  EXPECT_EQ(client.Text(lib, 2, tree.path("doc.txt"), 100, [](const std::string&) { return true; }).status, S_OK);
  EXPECT_EQ(client.Text(lib, 2, tree.path("empty.txt"), 100, [](const std::string&) { return true; }).status,
            S_FALSE);
  EXPECT_EQ(client.host_starts(), 1u);
}

TEST(PluginHostClient, ReportsTheDetectStringAndLoadsTheSixtyFourBitName) {
  PluginHostClient client(Options());
  const PluginFieldList& list = client.Fields(Plugin("detect"));  // only detect.wdx64 exists
  ASSERT_TRUE(list.loaded) << list.error;
  EXPECT_EQ(list.detect, "EXT=\"TXT\" | EXT=\"MD\"");
}

TEST(PluginHostClient, ALibraryThatIsNoPluginOffersNothing) {
  testing::TempTree tree({"junk.wdx=not a library"});
  PluginHostClient client(Options());
  const PluginFieldList& missing = client.Fields(tree.path("nothing.wdx"));
  EXPECT_FALSE(missing.loaded);
  EXPECT_FALSE(missing.error.empty());
  EXPECT_FALSE(client.Fields(tree.path("junk.wdx")).loaded);
  EXPECT_TRUE(client.Fields(Plugin("crash")).loaded) << "the host is still fine";
}

TEST(PluginHostClient, ACrashCostsThatValueAndThreeDisableThePlugin) {
  testing::TempTree tree({"boom.txt=x", "calm.txt=x"});
  PluginHostClient client(Options());
  std::vector<std::string> notices;
  client.SetNoticeHandler([&](const std::string& text) { notices.push_back(text); });
  const std::string lib = Plugin("crash");
  for (int i = 0; i < 2; ++i) {
    Got crashed = Ask(client, lib, 0, plugin::kFtString, tree.path("boom.txt"));
    EXPECT_EQ(crashed.status, E_FAIL);
    EXPECT_TRUE(crashed.outcome.host_failed);
    Got calm = Ask(client, lib, 0, plugin::kFtString, tree.path("calm.txt"));
    EXPECT_EQ(calm.status, S_OK) << calm.outcome.message;
    EXPECT_EQ(calm.value.text(), "fine");
  }
  EXPECT_TRUE(notices.empty());
  EXPECT_TRUE(Ask(client, lib, 0, plugin::kFtString, tree.path("boom.txt")).outcome.host_failed);
  EXPECT_TRUE(client.Disabled(lib));
  ASSERT_EQ(notices.size(), 1u);
  EXPECT_NE(notices[0].find("crash.wdx"), std::string::npos);
  Got after = Ask(client, lib, 0, plugin::kFtString, tree.path("calm.txt"));
  EXPECT_EQ(after.status, E_FAIL);
  EXPECT_FALSE(after.outcome.host_failed) << "a disabled plugin is not asked";
  EXPECT_EQ(notices.size(), 1u) << "told once";
  // Other plugins go on.
  EXPECT_EQ(Ask(client, Plugin("allfields"), 0, plugin::kFtNumeric32, tree.path("calm.txt")).status, S_OK);
}

TEST(PluginHostClient, APluginThatHangsIsAskedToStopThenKilled) {
  testing::TempTree tree({"doc.txt=x"});
  PluginHostClient client(Options(300));
  client.SetNoticeHandler([](const std::string&) {});
  const std::string lib = Plugin("hang");
  Got polite = Ask(client, lib, 0, plugin::kFtString, tree.path("doc.txt"));
  EXPECT_EQ(polite.status, E_FAIL);
  EXPECT_FALSE(polite.outcome.host_failed) << "it stopped when asked: " << polite.outcome.message;
  EXPECT_EQ(client.host_starts(), 1u);

  Got stubborn = Ask(client, lib, 1, plugin::kFtString, tree.path("doc.txt"));
  EXPECT_EQ(stubborn.status, E_FAIL);
  EXPECT_TRUE(stubborn.outcome.host_failed);
  EXPECT_EQ(Ask(client, Plugin("allfields"), 0, plugin::kFtNumeric32, tree.path("doc.txt")).status, S_OK);
  EXPECT_EQ(client.host_starts(), 2u) << "a new host took the killed one's place";
}

TEST(PluginHostClient, AValueWrittenPastTheBufferIsRefused) {
  testing::TempTree tree({"doc.txt=x"});
  PluginHostClient client(Options());
  const std::string lib = Plugin("overrun");
  Got overrun = Ask(client, lib, 0, plugin::kFtString, tree.path("doc.txt"));
  EXPECT_EQ(overrun.status, E_FAIL);
  EXPECT_TRUE(overrun.value.IsEmpty());
  EXPECT_NE(overrun.outcome.message.find("past"), std::string::npos);
  EXPECT_EQ(Ask(client, lib, 1, plugin::kFtString, tree.path("doc.txt")).value.text(), "short");
}

TEST(PluginHostClient, ThePluginCanNeitherWriteNorOpenASocket) {
  testing::TempTree tree({"doc.txt=x"});
  PluginHostClient client(Options());
  const std::string lib = Plugin("escape");
  EXPECT_EQ(Ask(client, lib, 0, plugin::kFtString, tree.path("doc.txt")).value.text(), "refused");
  EXPECT_NE(access(tree.path("doc.txt.written").c_str(), F_OK), 0);
  EXPECT_EQ(Ask(client, lib, 1, plugin::kFtString, tree.path("doc.txt")).value.text(), "refused");
}

TEST(PluginHostClient, AMissingHostIsAFailureNotACrash) {
  PluginHostOptions options = Options();
  options.program = "/nonexistent/trovix-plugin-host";
  PluginHostClient client(options);
  EXPECT_FALSE(client.Fields(Plugin("allfields")).loaded);
  PropValue value;
  EXPECT_EQ(client.Value(Plugin("allfields"), 0, plugin::kFtNumeric32, "/tmp", &value).status, E_FAIL);
}

}  // namespace
}  // namespace trovix::props
