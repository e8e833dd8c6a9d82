// The quick view: the presentation chosen for each type, the "QuickView" settings' range
// rules, and the pane against real files drawn by the real renderer: a file replaced while it
// is shown, a picture that crashes or hangs the renderer, a FIFO named like a picture.
// Pictures of every presentation go to the build's screenshots/ folder, at 100% and (in a
// child run with QT_SCALE_FACTOR=2) at 200%, "@2x".
#include <gtest/gtest.h>

#include <QApplication>
#include <QBuffer>
#include <QDir>
#include <QElapsedTimer>
#include <QImage>
#include <QLineEdit>
#include <QPlainTextEdit>
#include <QProcess>
#include <QSignalSpy>
#include <QTcpServer>
#include <QTextCursor>
#include <QSlider>
#include <QTableView>
#include <QTest>
#include <QToolButton>

#include <filesystem>

#include "app/settings/settings_store.h"
#include "tests/support/temp_tree.h"
#include "tests/views/frame_test_util.h"
#include "tests/views/screenshots.h"
#include "tests/views/qt_wait.h"
#include "views/frame/search_pane.h"
#include "views/results/results_model.h"
#include "views/results/results_pane.h"
#include "views/preview/media_pane.h"
#include "views/preview/quick_view.h"
#ifdef TROVIX_HAVE_WEBENGINE
#include "views/preview/page_view.h"
#endif
#include "views/preview/quick_view_settings.h"
#include "views/preview/render_service.h"

namespace trovix::views {
namespace {

using testing::TempTree;

PreviewFacts Facts(const char* ext) {
  PreviewFacts f;
  f.extension = ext;
  return f;
}

PreviewMode First(const PreviewFacts& facts, uint32_t options = 7, bool media = true) {
  auto modes = CandidateModes(facts, options, media);
  return modes.empty() ? PreviewMode::kNothing : modes.front();
}

TEST(QuickViewChoice, EachTypeGoesToItsPresentation) {
  struct Case {
    const char* ext;
    PreviewMode mode;
  } cases[] = {
      // One of each kind, in any case; "opus" is no sound the player is offered.
      {"HTM", PreviewMode::kBrowser}, {"xml", PreviewMode::kBrowser}, {"FLAC", PreviewMode::kMedia},
      {"mkv", PreviewMode::kMedia},   {"pdf", PreviewMode::kHandler}, {"PNG", PreviewMode::kHandler},
      {"docx", PreviewMode::kText},   {"", PreviewMode::kText},       {"opus", PreviewMode::kText},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.ext);
    EXPECT_EQ(First(Facts(c.ext)), c.mode);
  }
  // A picture falls through to its thumbnail, then to text; a page to text.
  EXPECT_EQ(CandidateModes(Facts("jpg"), 7, true),
            (std::vector<PreviewMode>{PreviewMode::kHandler, PreviewMode::kThumbnail, PreviewMode::kText}));
  EXPECT_EQ(CandidateModes(Facts("htm"), 7, true), (std::vector<PreviewMode>{PreviewMode::kBrowser, PreviewMode::kText}));
}

TEST(QuickViewChoice, OptionBitsAndItemsThatCannotBeShown) {
  // A picture before the previewer, but never for a PDF.
  EXPECT_EQ(First(Facts("jpg"), 7 | kPreferThumbnail), PreviewMode::kThumbnail);
  EXPECT_EQ(First(Facts("pdf"), 7 | kPreferThumbnail), PreviewMode::kHandler);
  // Without a player, sound is read as a file.
  EXPECT_EQ(First(Facts("mp3"), 7, false), PreviewMode::kText);
  // A lister plug-in first only with its bit; otherwise after the previewer.
  auto lister_first = CandidateModes(Facts("jpg"), kListerFirst, true, true);
  EXPECT_EQ(lister_first.front(), PreviewMode::kLister);
  auto lister_later = CandidateModes(Facts("jpg"), 7, true, true);
  EXPECT_EQ(lister_later[1], PreviewMode::kLister);

  PreviewFacts folder = Facts("png");
  folder.folder = true;
  EXPECT_TRUE(CandidateModes(folder, 7, true).empty());

  // An archive member: a page or a picture only as a stream within nMaxStreamExtractSize; the
  // player never (it takes a path).
  PreviewFacts member = Facts("htm");
  member.file_system = false;
  member.size_known = true;
  member.size = 5000;
  member.max_stream_extract_size = 0x300000;
  EXPECT_EQ(First(member), PreviewMode::kBrowser);
  member.size = 0x300001;
  EXPECT_EQ(First(member), PreviewMode::kText);
  member.extension = "png";
  EXPECT_EQ(First(member), PreviewMode::kText);
  member.size = 5000;
  member.max_stream_extract_size = 0;
  EXPECT_EQ(First(member), PreviewMode::kText);
  member.extension = "mp3";
  member.max_stream_extract_size = 0x300000;
  EXPECT_EQ(First(member), PreviewMode::kText);
}

TEST(QuickViewSettingsTest, RangeRulesApplyOnReading) {
  TempTree tree;
  auto store = app::SettingsStore::OpenFile(tree.path("trovix.ini"));
  const auto section = store->Open("QuickView", false);
  auto read = [&] { return LoadQuickViewSettings(*store); };
  EXPECT_EQ(read().nTabWidth, 3);
  EXPECT_EQ(read().nTextPrevLen, 8192);
  EXPECT_EQ(read().binMiscOptions, 7u);
  // Tab widths 1 to 12 and preview lengths 1,000 to 65,536 are kept; others read as the default.
  const struct {
    const char* name;
    uint32_t stored;
    int read;
  } cases[] = {{"nTabWidth", 0, 3},         {"nTabWidth", 13, 3},         {"nTabWidth", 0xFFFFFFFF, 3},
               {"nTabWidth", 12, 12},       {"nTabWidth", 1, 1},          {"nTextPrevLen", 500, 8192},
               {"nTextPrevLen", 65537, 8192}, {"nTextPrevLen", 1000, 1000}};
  for (const auto& c : cases) {
    section.WriteInt(c.name, c.stored);
    const QuickViewSettings s = read();
    EXPECT_EQ(std::string(c.name) == "nTabWidth" ? s.nTabWidth : s.nTextPrevLen, c.read) << c.name << c.stored;
  }
  section.WriteBinary("binLogFont", std::vector<uint8_t>(91, 1));
  EXPECT_TRUE(read().binLogFont.empty()) << "a block that is no LOGFONTW is ignored";
}

TEST(QuickViewSettingsTest, TextFontComesFromALogFontBlock) {
  QFont dejavu("DejaVu Sans");
  dejavu.setPixelSize(17);
  dejavu.setItalic(true);
  dejavu.setWeight(QFont::Bold);
  const std::vector<uint8_t> block = LogFontFromFont(dejavu);
  ASSERT_EQ(block.size(), 92u);
  const QFont back = FontFromLogFont(block);
  EXPECT_EQ(back.family(), "DejaVu Sans");
  EXPECT_EQ(back.pixelSize(), 17);
  EXPECT_TRUE(back.italic());
  EXPECT_EQ(back.weight(), QFont::Bold);
  // A face the system lacks, or no face: the fixed font.
  const QString fixed = QFontDatabase::systemFont(QFontDatabase::FixedFont).family();
  EXPECT_EQ(FontFromLogFont(LogFontFromFont(QFont("No Such Face 123"))).family(), fixed);
  EXPECT_EQ(FontFromLogFont(std::vector<uint8_t>(92, 0)).family(), fixed);
}

std::string Png(int w, int h, QColor color) {
  QImage image(w, h, QImage::Format_ARGB32);
  image.fill(color);
  for (int y = 0; y < h; ++y)
    for (int x = 0; x < w / 3; ++x) image.setPixelColor(x, y, QColor(255, 255 - y * 255 / h, 0));
  QByteArray bytes;
  QBuffer buffer(&bytes);
  buffer.open(QIODevice::WriteOnly);
  image.save(&buffer, "PNG");
  return bytes.toStdString();
}


// A pane as the frame has it, with the test renderer (which crashes or hangs on request) and a
// short deadline.
class QuickViewPane : public ::testing::Test {
 protected:
  QuickViewPane() {
    RenderServiceOptions options;
    options.program = TROVIX_RENDER_TEST_PATH;
    options.timeout_ms = 1500;
    service_ = std::make_shared<RenderService>(options);
    view_ = std::make_unique<QuickView>(nullptr, service_);
    view_->resize(420, 320);
    view_->show();
    engine::ContentsOptions contents;
    view_->SetSettings(QuickViewSettings{}, contents);
  }

  // Shows `relative` and waits until the choice settles.
  PreviewMode Show(const std::string& relative, int wait_ms = 10000) {
    return ShowItem(props::ShellItem::FromPath(tree_.path(relative)), wait_ms);
  }
  PreviewMode ShowItem(props::ShellItemPtr item, int wait_ms = 10000) {
    QSignalSpy settled(view_.get(), &QuickView::settled);
    view_->Schedule(std::move(item));
    view_->UpdateNow();
    if (view_->busy()) {
      EXPECT_TRUE(settled.wait(wait_ms));
    }
    return view_->mode();
  }
  void Shot(const QString& name) { testing::SaveScreenshot(view_.get(), "quickview-" + name); }

  TempTree tree_;
  std::shared_ptr<RenderService> service_;
  std::unique_ptr<QuickView> view_;
};

#ifdef TROVIX_HAVE_WEBENGINE
// A previewed page is drawn as a browser draws it, and asks nothing of the network: a server
// its picture and its frame point at hears nothing, and a link does not navigate.
TEST_F(QuickViewPane, APageIsDrawnWithoutReachingTheNetwork) {
  QTcpServer server;
  ASSERT_TRUE(server.listen(QHostAddress::LocalHost));
  const std::string remote = "http://127.0.0.1:" + std::to_string(server.serverPort());
  tree_.File("remote.html", "<html><body><p>Local words</p><img src=\"" + remote + "/x.png\">"
                            "<iframe src=\"" + remote + "/frame\"></iframe>"
                            "<link rel=stylesheet href=\"" + remote + "/s.css\"></body></html>");
  ASSERT_EQ(Show("remote.html"), PreviewMode::kBrowser);
  EXPECT_TRUE(view_->shown_text().contains("Local words")) << view_->shown_text().toStdString();
  EXPECT_NE(view_->findChild<PageView*>(), nullptr);
  EXPECT_FALSE(server.waitForNewConnection(500)) << "the page reached the network";
}
#endif

// RTF is shown as it looks: what is bold, italic or underlined in the document is so in the pane.
TEST_F(QuickViewPane, RtfKeepsItsLook) {
  tree_.File("letter.rtf", "{\\rtf1\\ansi Dear {\\b harbour} master, {\\i see} \\ul you\\ulnone  soon}");
  ASSERT_EQ(Show("letter.rtf"), PreviewMode::kText);
  ASSERT_EQ(view_->shown_text(), "Dear harbour master, see you soon");
  auto* text = qobject_cast<QPlainTextEdit*>(view_->presentation(PreviewMode::kText));
  ASSERT_NE(text, nullptr);
  auto look_at = [&](int position) {
    QTextCursor cursor(text->document());
    cursor.setPosition(position + 1);  // the format of the character before the cursor
    return cursor.charFormat();
  };
  const QString shown = view_->shown_text();
  EXPECT_EQ(look_at(shown.indexOf("harbour")).fontWeight(), QFont::Bold);
  EXPECT_NE(look_at(shown.indexOf("master")).fontWeight(), QFont::Bold);
  EXPECT_TRUE(look_at(shown.indexOf("see")).fontItalic());
  EXPECT_TRUE(look_at(shown.indexOf("you")).fontUnderline());
  EXPECT_FALSE(look_at(shown.indexOf("soon")).fontUnderline());
}

TEST_F(QuickViewPane, ShowsEachPresentation) {
  tree_.File("notes.txt", "Shopping\n\tmilk\n\tbread\nTabs line up:\ta\tb\tc\n");
  tree_.File("photo.png", Png(640, 400, QColor(40, 90, 200)));
  tree_.File("page.HTM", "<html><body><h1>Trip report</h1><p>Rain, then <b>sun</b>.</p>"
                         "<script>document.write('never')</script></body></html>");
  ASSERT_EQ(Show("notes.txt"), PreviewMode::kText);
  EXPECT_TRUE(view_->shown_text().startsWith("Shopping\n\tmilk")) << view_->shown_text().toStdString();
  auto* text = qobject_cast<QPlainTextEdit*>(view_->presentation(PreviewMode::kText));
  ASSERT_NE(text, nullptr);
  EXPECT_NEAR(text->tabStopDistance(), QFontMetricsF(text->font()).horizontalAdvance(' ') * 3, 0.5);
  Shot("text");

  ASSERT_EQ(Show("photo.png"), PreviewMode::kHandler);
  const QImage picture = view_->shown_picture();
  ASSERT_FALSE(picture.isNull());
  EXPECT_LE(picture.width(), static_cast<int>(420 * view_->devicePixelRatioF()));
  Shot("picture");

  ASSERT_EQ(Show("page.HTM"), PreviewMode::kBrowser);
  EXPECT_TRUE(view_->shown_text().contains("Trip report"));
  EXPECT_FALSE(view_->shown_text().contains("never")) << "scripts are not run";
  QTest::qWait(1000);  // the web engine paints a while after the page has loaded
  Shot("page");

  const std::string corpus = TROVIX_SOURCE_DIR "/../shared/corpus/";
  const std::string pdf = corpus + "documents/pdflatex-4-pages.pdf";
  if (std::filesystem::exists(pdf)) {
    ASSERT_EQ(ShowItem(props::ShellItem::FromPath(pdf)), PreviewMode::kHandler);
    // The page is paper: white where nothing is printed.
    const QImage page = view_->shown_picture();
    EXPECT_EQ(page.pixelColor(page.width() / 20, page.height() / 20), QColor(Qt::white));
    auto* next = view_->presentation(PreviewMode::kHandler)->findChild<QToolButton*>();
    ASSERT_NE(next, nullptr);
    EXPECT_TRUE(next->isVisible()) << "four pages: the page bar is shown";
    Shot("pdf");
  }
  const std::string rtf = corpus + "documents/Example_text.rtf";
  if (std::filesystem::exists(rtf)) {
    ASSERT_EQ(ShowItem(props::ShellItem::FromPath(rtf)), PreviewMode::kText);
    EXPECT_FALSE(view_->shown_text().contains("\\rtf"));
    Shot("rtf");
  }
  if (MediaPane::Available()) {
    tree_.File("song.mp3", "");
    ASSERT_EQ(Show("song.mp3"), PreviewMode::kMedia);
    auto* media = qobject_cast<MediaPane*>(view_->presentation(PreviewMode::kMedia));
    ASSERT_NE(media, nullptr);
    media->volume_slider()->setValue(30);
    Shot("media");
  }
  QuickViewSettings prefer_thumbnail;
  prefer_thumbnail.binMiscOptions = 7 | kPreferThumbnail;
  view_->SetSettings(prefer_thumbnail, engine::ContentsOptions{});
  ASSERT_EQ(Show("photo.png"), PreviewMode::kThumbnail);
  EXPECT_FALSE(view_->shown_picture().isNull());
  Shot("thumbnail");
}

TEST(MediaPaneTest, LoadsSeeksAndSetsTheVolumeOfASong) {
  if (!MediaPane::Available()) GTEST_SKIP() << "built without a player";
  const std::string song = TROVIX_SOURCE_DIR "/../shared/corpus/audio/silence-44-s.flac";
  if (!std::filesystem::exists(song)) GTEST_SKIP() << "no corpus";
  MediaPane pane;
  pane.resize(400, 300);
  pane.show();
  pane.Load(QString::fromStdString(song), false);
  // The FFmpeg back end reads the length: the position slider spans it.
  WAIT_UNTIL_FOR(pane.position_slider()->maximum() > 1000, 10000);
  pane.volume_slider()->setValue(25);
  pane.Seek(1500);
  WAIT_UNTIL_FOR(pane.position_slider()->value() >= 1000, 5000);
  pane.Release();
  EXPECT_FALSE(pane.playing());
}

TEST_F(QuickViewPane, TextIsCutAtThePreviewLength) {
  std::string long_text;
  for (int i = 0; i < 3000; ++i) long_text += "é";  // two bytes, one character
  tree_.File("long.txt", long_text);
  QuickViewSettings settings;
  settings.nTextPrevLen = 1000;
  settings.nTabWidth = 8;
  view_->SetSettings(settings, engine::ContentsOptions{});
  ASSERT_EQ(Show("long.txt"), PreviewMode::kText);
  EXPECT_EQ(view_->shown_text().size(), 1000);
  auto* text = qobject_cast<QPlainTextEdit*>(view_->presentation(PreviewMode::kText));
  EXPECT_NEAR(text->tabStopDistance(), QFontMetricsF(text->font()).horizontalAdvance(' ') * 8, 0.5);
}

TEST_F(QuickViewPane, OnlyTheStillFocusedItemNotShownYetIsShown) {
  tree_.File("a.txt", "alpha");
  tree_.File("b.txt", "beta");
  auto a = props::ShellItem::FromPath(tree_.path("a.txt"));
  auto b = props::ShellItem::FromPath(tree_.path("b.txt"));
  props::ShellItemPtr focused = a;
  view_->SetFocusedItemSource([&focused] { return focused; });
  ASSERT_EQ(ShowItem(a), PreviewMode::kText);
  // The focus moved on before the timer fired: nothing happens.
  view_->Schedule(b);
  focused = a;
  view_->UpdateNow();
  EXPECT_FALSE(view_->busy());
  EXPECT_EQ(view_->shown_item(), a);
  // The timer fires for the focused item on its own.
  focused = b;
  QSignalSpy settled(view_.get(), &QuickView::settled);
  view_->Schedule(b);
  ASSERT_TRUE(settled.wait(5000));
  EXPECT_EQ(view_->shown_item(), b);
  EXPECT_EQ(view_->shown_text(), "beta");
}

TEST_F(QuickViewPane, SwitchingPresentationsKeepsTheKeyboardFocus) {
  tree_.File("a.txt", "alpha");
  tree_.File("p.png", Png(50, 50, Qt::green));
  QLineEdit elsewhere;
  elsewhere.show();
  ASSERT_EQ(Show("a.txt"), PreviewMode::kText);
  view_->activateWindow();
  view_->presentation(PreviewMode::kText)->setFocus();
  QApplication::processEvents();
  ASSERT_TRUE(view_->presentation(PreviewMode::kText)->hasFocus());
  ASSERT_EQ(Show("p.png"), PreviewMode::kHandler);
  QWidget* focus = QApplication::focusWidget();
  ASSERT_NE(focus, nullptr);
  EXPECT_TRUE(view_->presentation(PreviewMode::kHandler) == focus ||
              view_->presentation(PreviewMode::kHandler)->isAncestorOf(focus));
}

TEST_F(QuickViewPane, AFileReplacedWhileShownIsShownAnewWhenFocusedAgain) {
  tree_.File("p.png", Png(80, 40, Qt::green));
  tree_.File("other.txt", "other");
  ASSERT_EQ(Show("p.png"), PreviewMode::kHandler);
  EXPECT_EQ(view_->shown_picture().width(), 80);
  // Replaced by another picture, then by text under the same name: the pane never reads
  // the old bytes, and a name that no longer holds a picture falls through to its text.
  tree_.File("p.png", Png(30, 60, Qt::red));
  ASSERT_EQ(Show("other.txt"), PreviewMode::kText);
  ASSERT_EQ(Show("p.png"), PreviewMode::kHandler);
  EXPECT_EQ(view_->shown_picture().width(), 30);
  tree_.File("p.png", "now only words");
  ASSERT_EQ(Show("other.txt"), PreviewMode::kText);
  ASSERT_EQ(Show("p.png"), PreviewMode::kText);
  EXPECT_EQ(view_->shown_text(), "now only words");
  std::filesystem::remove(tree_.path("p.png"));
  ASSERT_EQ(Show("other.txt"), PreviewMode::kText);
  EXPECT_EQ(Show("p.png"), PreviewMode::kNothing);
}

TEST_F(QuickViewPane, ArchiveMembersAreReadAsStreamsUpToTheLimit) {
  tree_.File("p.png", Png(60, 30, Qt::blue));
  tree_.File("page.htm", "<p>inside the archive</p>");
  const std::string cmd = "cd " + tree_.path("") + " && zip -q box.zip p.png page.htm";
  ASSERT_EQ(system(cmd.c_str()), 0);
  auto member = [&](const char* name) {
    platform::FileStatus status;
    status.type = platform::FileType::kRegular;
    status.size = std::filesystem::file_size(tree_.path(name));
    return props::ShellItem::FromArchiveMember({tree_.path("box.zip"), {name}}, status);
  };
  ASSERT_EQ(ShowItem(member("p.png")), PreviewMode::kHandler);
  EXPECT_EQ(view_->shown_picture().width(), 60);
  ASSERT_EQ(ShowItem(member("page.htm")), PreviewMode::kBrowser);
  EXPECT_TRUE(view_->shown_text().contains("inside the archive"));
  // Member reading switched off (nMaxStreamExtractSize under 10,000 reads as 0): no picture and
  // no page, and the text reader keeps to the same limit.
  engine::ContentsOptions off;
  off.max_stream_extract_size = 0;
  view_->SetSettings(QuickViewSettings{}, off);
  EXPECT_EQ(ShowItem(member("p.png")), PreviewMode::kNothing);
  EXPECT_EQ(ShowItem(member("page.htm")), PreviewMode::kNothing);
}

// The renderer dies on one picture (twice: previewer and thumbnail) and hangs on another past
// its deadline: each falls through to its text, and a new renderer draws the next picture.
TEST_F(QuickViewPane, AHostilePictureCostsOnlyItsPreview) {
  tree_.File("poison-crash.png", Png(20, 20, Qt::red));
  tree_.File("poison-hang.png", "words, not a picture");
  tree_.File("fine.png", Png(20, 20, Qt::blue));
  EXPECT_NE(Show("poison-crash.png"), PreviewMode::kHandler);
  EXPECT_EQ(Show("poison-hang.png", 15000), PreviewMode::kText);
  EXPECT_EQ(view_->shown_text(), "words, not a picture");
  EXPECT_EQ(Show("fine.png"), PreviewMode::kHandler) << "a new renderer took over";
}

TEST_F(QuickViewPane, AHangingPictureLeavesThePaneResponsiveAndClosesAtOnce) {
  tree_.File("poison-hang.png", Png(20, 20, Qt::red));
  view_->Schedule(props::ShellItem::FromPath(tree_.path("poison-hang.png")));
  view_->UpdateNow();
  ASSERT_TRUE(view_->busy());
  // The window goes on answering while the renderer hangs.
  QElapsedTimer clock;
  clock.start();
  int ticks = 0;
  QTimer tick;
  QObject::connect(&tick, &QTimer::timeout, [&ticks] { ++ticks; });
  tick.start(20);
  QTest::qWait(400);
  EXPECT_GE(ticks, 10);
  // Closing does not wait for the renderer.
  clock.restart();
  view_.reset();
  EXPECT_LT(clock.elapsed(), 200);
}

TEST_F(QuickViewPane, AFifoNamedLikeAPictureIsRefusedAtOnce) {
  tree_.Fifo("x.png");
  QElapsedTimer clock;
  clock.start();
  EXPECT_EQ(Show("x.png"), PreviewMode::kNothing);
  EXPECT_LT(clock.elapsed(), 3000);
  clock.restart();
  view_.reset();
  EXPECT_LT(clock.elapsed(), 200);
}

TEST(QuickViewInTheFrame, PreviewCommandShowsThePaneThatFollowsTheFocusedRow) {
  TempTree tree;
  tree.File("a.txt", "alpha");
  tree.File("b.txt", "beta");
  tree.File("c-holiday-photo.png", Png(640, 400, QColor(40, 90, 200)));
  testing::FrameSession session(tree);
  MainFrame& frame = session.frame();
  frame.resize(1000, 640);
  frame.results()->BeginSearch();
  frame.results()->AddResults({props::ShellItem::FromPath(tree.path("a.txt")),
                               props::ShellItem::FromPath(tree.path("b.txt")),
                               props::ShellItem::FromPath(tree.path("c-holiday-photo.png"))});
  frame.results()->EndSearch(false);
  QuickView* view = frame.quick_view();
  ASSERT_NE(view, nullptr);
  frame.command(32814)->trigger();  // Preview, Ctrl+Q
  ASSERT_TRUE(view->isVisible());
  // The rows in the order found; the picture last, for a look at the pane in its window.
  for (const auto& [row, mode, text] : {std::tuple{0, PreviewMode::kText, "alpha"}, {1, PreviewMode::kText, "beta"},
                                        {2, PreviewMode::kHandler, ""}}) {
    QSignalSpy settled(view, &QuickView::settled);
    frame.results()->view()->selectRow(row);
    ASSERT_TRUE(settled.wait(5000)) << row;
    EXPECT_EQ(view->shown_item(), frame.results()->FocusedItem());
    EXPECT_EQ(view->mode(), mode);
    if (mode == PreviewMode::kText) {
      EXPECT_EQ(view->shown_text(), text);
    }
  }
  testing::SaveScreenshot(&frame, "quickview-in-window");
  // A new search empties the list: the pane lets the item it showed go with it.
  session.SetSearch(tree.path(""), {testing::MakeRule("System.ItemNameDisplay", "*.none")});
  ASSERT_EQ(session.RunSearch(), 0);
  QTest::qWait(2 * kQuickViewDelayMs);
  EXPECT_EQ(view->shown_item(), nullptr);
  EXPECT_EQ(view->mode(), PreviewMode::kNothing);
}

TEST(QuickViewScreenshots, AtTwiceTheScale) {
  if (testing::InScreenshotChild()) GTEST_SKIP() << "already the child";
  testing::RunAtTwiceTheScale("QuickViewPane.ShowsEachPresentation:QuickViewInTheFrame.*");
}

}  // namespace
}  // namespace trovix::views
