// The picture map with a real web view and no network: the page's bridge, the visible area
// read back, searching by a stored area, a picture without a position, and the markers of the
// corpus's photos against the console's count for the same rules. Pictures of the dialog go to
// the build folder's screenshots/.
#include <gtest/gtest.h>

#include <QElapsedTimer>
#include <QLineEdit>
#include <QMenu>
#include <QSignalSpy>
#include <QTableView>
#include <QTest>

#include <sys/stat.h>

#include <algorithm>
#include <cstdio>

#include "tests/support/run_program.h"
#include "tests/support/temp_tree.h"
#include "tests/views/frame_test_util.h"
#include "tests/views/screenshots.h"
#include "tests/support/test_files.h"
#include "views/frame/search_pane.h"
#include "views/map/map_dialog.h"
#include "views/map/picture_map.h"
#include "views/program/message_box.h"
#include "views/results/results_model.h"
#include "views/results/results_pane.h"
#include "views/rule_boxes/rule_box.h"

namespace trovix::views {
namespace {

using testing::FrameSession;

constexpr int kPageWaitMs = 60000;

bool WaitForPage(MapDialog& dialog) {
  if (dialog.PageReady()) return true;
  QSignalSpy ready(dialog.bridge(), &MapBridge::ready);
  return ready.wait(kPageWaitMs) || dialog.PageReady();
}

// Runs `script` in the page and waits for its answer.
QVariant Evaluate(MapDialog& dialog, const QString& script) {
  QVariant answer;
  bool done = false;
  dialog.RunScript(script, [&](const QVariant& v) {
    answer = v;
    done = true;
  });
  for (int waited = 0; !done && waited < 10000; waited += 20) QTest::qWait(20);
  EXPECT_TRUE(done) << "no answer to " << script.toStdString();
  return answer;
}

QStringList Inputs(MapDialog& dialog) {
  return Evaluate(dialog, "(function(){var f=document.forms.f1;return [f.top.value,f.left.value,f.zoom.value];})()")
      .toStringList();
}

void Screenshot(QWidget* widget, const QString& name) {
  QTest::qWait(1500);  // let the outlines and markers draw
  testing::SaveScreenshot(widget, name);
}

// First use keeps the page's defaults; a remembered centre is written in, a zoom of 0 as 1.
TEST(MapDialog, FirstUseKeepsThePageDefaultsLaterTheRememberedCentre) {
  app::MapState first;
  MapDialog dialog(&first);
  dialog.show();
  ASSERT_TRUE(WaitForPage(dialog)) << "the map page never connected";
  EXPECT_EQ(Inputs(dialog), (QStringList{"51.5", "-0.2", "6"}));
  Screenshot(&dialog, "map-offline");
  app::MapState paris{48.8566, 2.3522, 0};
  MapDialog again(&paris);
  again.show();
  ASSERT_TRUE(WaitForPage(again));
  EXPECT_EQ(Inputs(again), (QStringList{"48.8566", "2.3522", "1"}));
}

TEST(MapDialog, OkReadsTheVisibleAreaWithoutNetwork) {
  app::MapState state{40.7, -74.0, 9};
  MapDialog dialog(&state);
  dialog.resize(800, 600);
  dialog.show();
  ASSERT_TRUE(WaitForPage(dialog));
  dialog.nameField()->setText("  Lower Manhattan ");
  QSignalSpy chosen(&dialog, &MapDialog::areaChosen);
  dialog.Ok();
  ASSERT_TRUE(chosen.count() == 1 || chosen.wait(10000));
  const app::MapArea& area = *dialog.chosen();
  EXPECT_EQ(area.szName, "Lower Manhattan");
  EXPECT_GT(area.top, 40.7);
  EXPECT_LT(area.bottom, 40.7);
  EXPECT_LT(area.left, -74.0);
  EXPECT_GT(area.right, -74.0);
  EXPECT_LT(area.top - area.bottom, 5);  // zoom 9: a city, not a continent
  EXPECT_EQ(state.zoom, 9);
  EXPECT_NEAR(state.latitude, 40.7, 0.05);
  EXPECT_NEAR(state.longitude, -74.0, 0.05);

  // World: the whole world, cut at its edges.
  app::MapState world_state{40.7, -74.0, 9};
  MapDialog world(&world_state);
  world.show();
  ASSERT_TRUE(WaitForPage(world));
  world.World();
  QSignalSpy world_chosen(&world, &MapDialog::areaChosen);
  world.Ok();
  ASSERT_TRUE(world_chosen.count() == 1 || world_chosen.wait(10000));
  EXPECT_EQ(world.chosen()->left, -180);
  EXPECT_EQ(world.chosen()->right, 180);
  EXPECT_EQ(world_state.zoom, 1);
}

TEST(MapDialog, PageWithoutChannelSays10037AndStaysOpen) {
  MessageBoxRecorder boxes;
  app::MapState state;
  MapDialog dialog(&state, MapDialog::Page{"data:text/html,<p>no map here</p>", 3000});
  dialog.show();
  QSignalSpy failed(&dialog, &MapDialog::pageFailed);
  ASSERT_TRUE(failed.wait(15000));
  ASSERT_EQ(boxes.boxes().size(), 1u);
  EXPECT_EQ(boxes.boxes()[0].string_id, 10037u);
  EXPECT_TRUE(dialog.isVisible());
  // OK without a page: a beep, no area, the dialog stays.
  dialog.Ok();
  EXPECT_FALSE(dialog.chosen());
  EXPECT_TRUE(dialog.isVisible());
}

// Twenty thousand positions (the most the map shows) go to the page in batches while the page
// keeps answering; the time is printed for the record, not judged.
TEST(MapDialog, ManyMarkersArriveInBatchesWhileThePageAnswers) {
  app::MapState state;
  MapDialog dialog(&state);
  dialog.show();
  ASSERT_TRUE(WaitForPage(dialog));
  std::vector<MapPicture> pictures;
  for (int i = 0; i < PicturePositions::kMaxPictures; ++i)
    pictures.push_back({i, -60 + (i % 1200) * 0.1, -170 + (i / 1200) * 20.0, QString("p%1.jpg").arg(i)});
  QElapsedTimer timer;
  timer.start();
  dialog.bridge()->AddPictures(pictures);
  qint64 slowest_answer = 0;
  int marked = 0;
  while (marked < PicturePositions::kMaxPictures && timer.elapsed() < 120000) {
    QElapsedTimer answer;
    answer.start();
    marked = Evaluate(dialog, "markerCount()").toInt();
    slowest_answer = std::max(slowest_answer, answer.elapsed());
    QTest::qWait(50);
  }
  EXPECT_EQ(marked, PicturePositions::kMaxPictures);
  EXPECT_EQ(dialog.bridge()->queued(), 0u);
  std::printf("%d markers in %lld ms; slowest page answer meanwhile %lld ms\n", marked,
              static_cast<long long>(timer.elapsed()), static_cast<long long>(slowest_answer));
}

TEST(PictureMap, StoredAreaReplacesTheRulesByTwoRanges) {
  ::trovix::testing::TempTree tree({"photos/", "config/"});
  FrameSession session(tree);
  MainFrame& frame = session.frame();
  frame.search_pane()->SetRootText(QString::fromStdString(tree.path("photos")));
  frame.search_pane()->boxes().front()->SetValueText("*.jpg");
  QSignalSpy finished(&frame, &MainFrame::searchFinished);
  const size_t areas = frame.picture_map()->areaMenu()->actions().size();
  ASSERT_GE(areas, 1u);
  frame.picture_map()->RunAreaCommand(app::kMapAreaCommandFirst + static_cast<uint32_t>(areas));  // beyond: nothing
  EXPECT_EQ(frame.search_pane()->boxes().front()->ValueText(), "*.jpg");

  frame.picture_map()->RunAreaCommand(app::kMapAreaCommandFirst);  // "New York"
  std::vector<rules::RulePtr> rules;
  QString why;
  ASSERT_TRUE(frame.search_pane()->CollectRules(&rules, &why)) << why.toStdString();
  ASSERT_EQ(rules.size(), 2u);
  QStringList texts;
  for (RuleBox* box : frame.search_pane()->boxes())
    if (!box->ValueText().isEmpty()) texts << box->PropertyLabel() + "=" + box->ValueText();
  EXPECT_EQ(texts.size(), 2) << texts.join("; ").toStdString();
  EXPECT_TRUE(texts.join(";").contains("40.4446 .. 40.9921") || texts.join(";").contains("40° 26'"))
      << texts.join("; ").toStdString();
  EXPECT_TRUE(finished.count() == 1 || finished.wait(20000));  // the search ran
}

TEST(PictureMap, PictureWithoutPositionSays10036) {
  ::trovix::testing::TempTree tree({"files/note.txt=hello", "config/"});
  FrameSession session(tree);
  MainFrame& frame = session.frame();
  frame.search_pane()->SetRootText(QString::fromStdString(tree.path("files")));
  frame.search_pane()->boxes().front()->SetValueText("note.txt");
  ASSERT_EQ(session.RunSearch(), 1);
  frame.results()->view()->setCurrentIndex(frame.results()->model()->index(0, 0));
  frame.picture_map()->ShowSelected();
  ASSERT_FALSE(session.messages.empty());
  EXPECT_EQ(session.messages.back().string_id, 10036u);
  session.messages.clear();
  frame.picture_map()->OpenWebMap();
  ASSERT_FALSE(session.messages.empty());
  EXPECT_EQ(session.messages.back().string_id, 10036u);
}

std::string CorpusImages() {
  const std::string dir = testing::CorpusDir() + "/images";
  struct stat st;
  return stat(dir.c_str(), &st) == 0 ? dir : std::string();
}

TEST(PictureMap, MarkersForTheCorpusPhotosMatchTheConsole) {
  const std::string images = CorpusImages();
  if (images.empty()) GTEST_SKIP() << "no corpus images";
  ::trovix::testing::TempTree tree({"config/"});
  FrameSession session(tree);
  MainFrame& frame = session.frame();
  frame.search_pane()->SetRootText(QString::fromStdString(images));
  // The whole world as an area: every photo with a position.
  frame.picture_map()->SearchArea(app::MapArea{"", 90, -180, -90, 180});
  QSignalSpy finished(&frame, &MainFrame::searchFinished);
  ASSERT_TRUE(finished.count() == 1 || finished.wait(60000));
  const int found = frame.results()->model()->VisibleCount();

  const testing::ProgramRun cli = testing::RunProgram(
      TROVIX_CLI_PATH, {"search", images, "--robust", "-r", "System.GPS.Latitude: -90 .. 90", "-r",
                        "System.GPS.Longitude: -180 .. 180"},
      tree.path("stderr.txt"), "XDG_CONFIG_HOME=" + testing::ShellQuote(tree.path("config")) + " ");
  const int console = static_cast<int>(testing::SortedLines(cli.out).size());
  EXPECT_EQ(found, console) << cli.err;
  ASSERT_GT(console, 0);

  frame.picture_map()->OpenMap();
  MapDialog* dialog = frame.picture_map()->dialog();
  ASSERT_NE(dialog, nullptr);
  dialog->resize(900, 600);
  ASSERT_TRUE(WaitForPage(*dialog));
  QSignalSpy positions_done(frame.picture_map()->positions(), &PicturePositions::finished);
  if (!frame.picture_map()->positions()->done()) {
    ASSERT_TRUE(positions_done.wait(60000));
  }
  EXPECT_EQ(frame.picture_map()->positions()->found(), console);
  // The page pulls the positions in batches and clusters them in chunks: wait for the last.
  int marked = 0;
  for (int waited = 0; waited < 20000 && (marked = Evaluate(*dialog, "markerCount()").toInt()) != console; waited += 200)
    QTest::qWait(200);
  EXPECT_EQ(marked, console);
  Screenshot(dialog, "map-markers");
  // A click on a marker selects its picture in the results.
  QSignalSpy chosen(frame.picture_map(), &PictureMap::pictureChosen);
  dialog->bridge()->openPicture(0);
  ASSERT_EQ(chosen.count(), 1);
  EXPECT_EQ(frame.results()->FocusedItem(), frame.picture_map()->positions()->Item(0));
  dialog->close();
}

}  // namespace
}  // namespace trovix::views
