// Screenshots for a person to look at, in the build's screenshots folder: at 100% in the test
// run, and at 200% ("@2x") in a child run of the same test program with QT_SCALE_FACTOR=2.
#pragma once

#include <gtest/gtest.h>

#include <QApplication>
#include <QCoreApplication>
#include <QDir>
#include <QProcess>
#include <QProcessEnvironment>
#include <QString>
#include <QWidget>

namespace trovix::testing {

inline bool InScreenshotChild() { return qEnvironmentVariableIsSet("TROVIX_SCREENSHOT_CHILD"); }

// Saves `widget` as NAME.png (NAME@2x.png in the child run).
inline void SaveScreenshot(QWidget* widget, const QString& name) {
  const QString folder = QStringLiteral(TROVIX_BUILD_DIR "/screenshots");
  QDir().mkpath(folder);
  QApplication::processEvents();
  EXPECT_TRUE(widget->grab().save(folder + "/" + name + (InScreenshotChild() ? "@2x" : "") + ".png"))
      << name.toStdString();
}

// Runs the tests `filter` names again at twice the scale, in a child of this program.
inline void RunAtTwiceTheScale(const QString& filter) {
  QProcess child;
  QProcessEnvironment env = QProcessEnvironment::systemEnvironment();
  env.insert("TROVIX_SCREENSHOT_CHILD", "1");
  env.insert("QT_SCALE_FACTOR", "2");
  child.setProcessEnvironment(env);
  child.setProcessChannelMode(QProcess::ForwardedChannels);
  child.start(QCoreApplication::applicationFilePath(), {"--gtest_filter=" + filter});
  ASSERT_TRUE(child.waitForFinished(120000));
  EXPECT_EQ(child.exitCode(), 0);
}

}  // namespace trovix::testing
