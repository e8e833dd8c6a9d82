// A content plugin that crashes, in the desktop program's search: it costs the values it was
// asked for, never the search or the program, and its switching off is told on the frame's
// status line.
#include <gtest/gtest.h>

#include <QSignalSpy>
#include <QTest>

#include <algorithm>

#include "props/catalogue.h"
#include "props/content_plugin.h"
#include "props/plugins/plugin_columns.h"
#include "rules/rule.h"
#include "rules/value/value_syntax.h"
#include "tests/support/temp_tree.h"
#include "views/frame/frame_search.h"

namespace trovix::views {
namespace {

TEST(FrameSearch, APluginThatCrashesCostsItsValuesNotTheSearch) {
  testing::TempTree tree({"data/a.txt=x", "data/boom1.txt=x", "data/boom2.txt=x", "data/boom3.txt=x",
                          "data/boom4.txt=x", "data/calm.txt=x"});
  props::PluginHostOptions options;
  options.program = TROVIX_PLUGIN_HOST_PATH;
  props::InstallContentPlugins({props::MakeContentPlugin(0, std::string(TROVIX_TEST_PLUGIN_DIR) + "/crash.wdx", "")},
                               options);
  {
    // The process's catalogue was built before the plugin was installed; a new one has it.
    std::unique_ptr<props::Catalogue> catalogue = props::Catalogue::Build(false);
    const props::PropertyInfo* fine = catalogue->FindProperty("Fine.crash");
    ASSERT_NE(fine, nullptr);
    auto rule = rules::Rule::CreateFor(*fine);
    ASSERT_TRUE(rules::ParseRuleText(*rule, "fine"));

    FrameSearch search(tree.path("index.db"));
    QSignalSpy finished(&search, &FrameSearch::finished);
    QSignalSpy status(&search, &FrameSearch::status);
    engine::SearchRequest request;
    request.rules = {rule};
    request.roots = {tree.path("data")};
    request.sort_names = true;
    ASSERT_EQ(search.StartOrStop(request), engine::StartOutcome::kStarted) << search.error();
    ASSERT_TRUE(finished.wait(60'000));
    // "a.txt" comes before the three crashes; "calm.txt" after them, when the plugin is off.
    EXPECT_EQ(finished.at(0).at(0).toLongLong(), 1);
    auto told = [&] {
      return std::any_of(status.begin(), status.end(),
                         [](const QList<QVariant>& args) { return args.at(0).toString().contains("switched off"); });
    };
    for (int i = 0; i < 50 && !told(); ++i) QTest::qWait(100);
    EXPECT_TRUE(told());
  }
  props::InstallContentPlugins({}, {});
}

}  // namespace
}  // namespace trovix::views
