// Lister plugins in the quick view, with the tests' lister library (it draws a file's first
// line with Xlib) in a real plugin host. Offscreen there is no window a lister could draw
// into, and the pane moves on; the rest runs again in a child of this program under a virtual
// X server (xvfb-run), where the lister's window must be a child of the pane, follow the pane
// from file to file, and be gone when the pane moves to another presentation.
#include <gtest/gtest.h>

#include <QCoreApplication>
#include <QDir>
#include <QElapsedTimer>
#include <QGuiApplication>
#include <QImage>
#include <QPixmap>
#include <QProcess>
#include <QSignalSpy>
#include <QStandardPaths>
#include <QTest>

#include <memory>

#include "props/content_plugin.h"
#include "props/plugins/lister_plugins.h"
#include "tests/support/temp_tree.h"
#include "views/preview/lister_pane.h"
#include "views/preview/quick_view.h"
#include "views/preview/render_service.h"

namespace trovix::views {
namespace {

#ifdef TROVIX_TEST_LISTER

using testing::TempTree;

constexpr const char* kChildVariable = "TROVIX_LISTER_X11_CHILD";

std::shared_ptr<props::ListerSet> Listers(const std::string& detect = "") {
  props::PluginHostOptions options;
  options.program = TROVIX_PLUGIN_HOST_PATH;
  options.timeout_ms = 3000;
  return std::make_shared<props::ListerSet>(
      std::vector<props::ContentPlugin>{props::MakeContentPlugin(0, TROVIX_TEST_LISTER, detect)},
      options);
}

class ListerPaneTest : public ::testing::Test {
 protected:
  void Open(std::shared_ptr<props::ListerSet> listers, uint32_t options = 7) {
    RenderServiceOptions render;
    render.program = TROVIX_RENDER_TEST_PATH;
    listers_ = std::move(listers);
    view_ = std::make_unique<QuickView>(nullptr, std::make_shared<RenderService>(render));
    view_->SetListers(listers_);
    QuickViewSettings settings;
    settings.binMiscOptions = options;
    view_->SetSettings(settings, engine::ContentsOptions{});
    view_->resize(480, 300);
    view_->show();
    ASSERT_TRUE(QTest::qWaitForWindowExposed(view_.get()));
  }
  PreviewMode Show(const std::string& relative) {
    QSignalSpy settled(view_.get(), &QuickView::settled);
    view_->Schedule(props::ShellItem::FromPath(tree_.path(relative)));
    view_->UpdateNow();
    if (view_->busy()) {
      EXPECT_TRUE(settled.wait(15000));
    }
    return view_->mode();
  }
  ListerPane* pane() const {
    return qobject_cast<ListerPane*>(view_->presentation(PreviewMode::kLister));
  }

  TempTree tree_{{"first.txt=Lister line one\nmore", "second.lst=Second file, same window",
                  "other.dat=plain data", "boom.txt=crash", "after.txt=After the crash"}};
  std::shared_ptr<props::ListerSet> listers_;
  std::unique_ptr<QuickView> view_;
};

TEST_F(ListerPaneTest, WithoutX11ThePaneMovesOnAndStartsNoHost) {
  if (QGuiApplication::platformName() == "xcb") GTEST_SKIP() << "runs offscreen";
  Open(Listers());
  EXPECT_EQ(Show("first.txt"), PreviewMode::kText);
  EXPECT_EQ(listers_->host().host_starts(), 0u);
}

// The same program again, under a virtual X server, running the tests below.
TEST(ListerOnX11Run, UnderAVirtualXServer) {
  if (qEnvironmentVariableIsSet(kChildVariable)) GTEST_SKIP() << "already the child";
  const QString xvfb = QStandardPaths::findExecutable("xvfb-run");
  if (xvfb.isEmpty() || QStandardPaths::findExecutable("xwininfo").isEmpty())
    GTEST_SKIP() << "needs xvfb-run and xwininfo";
  QProcess child;
  QProcessEnvironment env = QProcessEnvironment::systemEnvironment();
  env.insert(kChildVariable, "1");
  env.insert("QT_QPA_PLATFORM", "xcb");
  // Under the xcb platform, D-Bus and Qt's platform plugins (unloaded by the time the leak
  // checker runs, so it cannot name them) keep allocations for the process's life; the same
  // code is leak-checked by the offscreen tests of this file.
  const QString asan = env.value("ASAN_OPTIONS");
  env.insert("ASAN_OPTIONS", asan + (asan.isEmpty() ? "" : ":") + "detect_leaks=0");
  child.setProcessEnvironment(env);
  child.setProcessChannelMode(QProcess::MergedChannels);
  child.start(xvfb, {"-a", "-s", "-screen 0 1024x768x24", QCoreApplication::applicationFilePath(),
                     "--gtest_filter=ListerOnX11.*"});
  ASSERT_TRUE(child.waitForFinished(180000));
  const QString out = QString::fromLocal8Bit(child.readAll());
  EXPECT_EQ(child.exitCode(), 0) << out.toStdString();
  EXPECT_TRUE(out.contains("[  PASSED  ] 3 tests")) << out.toStdString();
}

class ListerOnX11 : public ListerPaneTest {
 protected:
  void SetUp() override {
    if (!qEnvironmentVariableIsSet(kChildVariable) || QGuiApplication::platformName() != "xcb")
      GTEST_SKIP() << "runs in the child under a virtual X server";
  }
  // What xwininfo says of `window`'s children; empty when the window does not exist.
  static QString Children(uint64_t window) {
    QProcess info;
    info.start("xwininfo", {"-children", "-id", QString("0x%1").arg(window, 0, 16)});
    if (!info.waitForFinished(10000) || info.exitCode() != 0) return {};
    return QString::fromLocal8Bit(info.readAllStandardOutput());
  }
  static bool Exists(uint64_t window) { return !Children(window).isEmpty(); }
};

TEST_F(ListerOnX11, TheListersWindowIsAChildOfThePaneFollowsItAndIsClosedOnSwitching) {
  Open(Listers());
  ASSERT_EQ(Show("first.txt"), PreviewMode::kLister);
  ASSERT_NE(pane(), nullptr);
  const uint64_t window = pane()->window();
  ASSERT_NE(window, 0u);
  const QString children = Children(pane()->winId());
  EXPECT_TRUE(children.contains(QString("0x%1 \"trovix test lister\"").arg(window, 0, 16)))
      << children.toStdString();

  // What a person sees: the file's first line in the pane.
  QTest::qWait(200);
  const QPixmap shot = view_->screen()->grabWindow(view_->winId());
  const QString folder = QStringLiteral(TROVIX_BUILD_DIR "/screenshots");
  QDir().mkpath(folder);
  EXPECT_TRUE(shot.save(folder + "/quickview-lister.png"));
  // The lister's blue bar is drawn inside the pane, at its top.
  const QImage image = shot.toImage();
  const QPoint bar =
      pane()->mapTo(view_.get(), QPoint(pane()->width() / 2, 10)) * shot.devicePixelRatio();
  EXPECT_EQ(image.pixelColor(bar), QColor(0x30, 0x50, 0xc0));

  // The pane follows its size.
  view_->resize(600, 360);
  QTest::qWait(300);
  EXPECT_TRUE(Children(pane()->winId()).contains(QString("%1x").arg(pane()->width())));

  // The next file the lister takes is loaded into the same window.
  ASSERT_EQ(Show("second.lst"), PreviewMode::kLister);
  EXPECT_EQ(pane()->window(), window);

  // A type the lister's detect string refuses: the text presentation, and the window closed.
  ASSERT_EQ(Show("other.dat"), PreviewMode::kText);
  QElapsedTimer waited;
  waited.start();
  while (Exists(window) && waited.elapsed() < 5000) QTest::qWait(50);
  EXPECT_FALSE(Exists(window));
  EXPECT_EQ(pane()->window(), 0u);
}

TEST_F(ListerOnX11, TheOptionBitPutsTheListerBeforeThePreviewer) {
  QImage picture(40, 30, QImage::Format_RGB32);
  picture.fill(Qt::green);
  ASSERT_TRUE(picture.save(QString::fromStdString(tree_.path("a.png"))));
  ASSERT_TRUE(picture.save(QString::fromStdString(tree_.path("b.png"))));
  Open(Listers("EXT=\"PNG\""));
  EXPECT_EQ(Show("a.png"), PreviewMode::kHandler);
  view_->SetSettings(QuickViewSettings{kListerFirst, 3, {}, 8192}, engine::ContentsOptions{});
  EXPECT_EQ(Show("b.png"), PreviewMode::kLister);
}

TEST_F(ListerOnX11, ACrashingListerLeavesTheDesktopAliveAndThePaneInTheNextMode) {
  Open(Listers());
  ASSERT_EQ(Show("boom.txt"), PreviewMode::kText);
  EXPECT_EQ(view_->shown_text(), "crash");
  EXPECT_FALSE(listers_->host().Disabled(TROVIX_TEST_LISTER)) << "one crash of three";
  // The host is started again for the next file.
  EXPECT_EQ(Show("after.txt"), PreviewMode::kLister);
  EXPECT_EQ(listers_->host().host_starts(), 2u);
}

#endif  // TROVIX_TEST_LISTER

}  // namespace
}  // namespace trovix::views
