// Tools > Pause indexing: the same switch as `trovix-cli index pause`, shown as it stands.
#include <gtest/gtest.h>

#include <QAction>
#include <QMenu>
#include <QMenuBar>
#include <QPoint>

#include "index/indexer_state.h"
#include "tests/views/frame_test_util.h"
#include "tests/views/screenshots.h"

namespace trovix::views {
namespace {

using testing::FrameSession;

TEST(PauseIndexing, TheToolsMenuSwitchIsTheConsolesPauseBothWays) {
  testing::TempTree tree({"docs/a.txt=1"});
  FrameSession session(tree);
  MainFrame& frame = session.frame();
  const std::string db = session.app().index_path();
  auto* pause = frame.findChild<QAction*>("PauseIndexing");
  ASSERT_NE(pause, nullptr);
  EXPECT_TRUE(pause->isCheckable());
  QMenu* tools = nullptr;
  for (QAction* a : frame.menuBar()->actions())
    if (a->menu() && a->menu()->actions().contains(pause)) tools = a->menu();
  ASSERT_NE(tools, nullptr);

  pause->trigger();
  EXPECT_TRUE(pause->isChecked());
  EXPECT_TRUE(engine::index::IndexPausedByUser(db));  // made even before any index exists
  pause->trigger();
  EXPECT_FALSE(engine::index::IndexPausedByUser(db));

  // Paused from the console meanwhile: the menu shows it when opened.
  ASSERT_TRUE(engine::index::SetIndexPaused(db, true, nullptr));
  tools->popup(frame.mapToGlobal(QPoint(0, 0)));
  EXPECT_TRUE(pause->isChecked());
  testing::SaveScreenshot(tools, "tools_menu_paused");
  tools->close();
  ASSERT_TRUE(engine::index::SetIndexPaused(db, false, nullptr));
  emit tools->aboutToShow();
  EXPECT_FALSE(pause->isChecked());
}

}  // namespace
}  // namespace trovix::views
