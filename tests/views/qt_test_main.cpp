// The test program of the desktop widgets: one QApplication for every test, on the offscreen
// platform unless the caller chose another (a real window under Xvfb, say).
#include <gtest/gtest.h>

#include <QApplication>

#include "views/program/sanitizer_defaults.h"
#include "views/program/web_engine_setup.h"

int main(int argc, char** argv) {
  if (qEnvironmentVariableIsEmpty("QT_QPA_PLATFORM")) qputenv("QT_QPA_PLATFORM", "offscreen");
  // The helpers of this build, not ones beside the test program; the player as the program
  // sets it up.
  if (qEnvironmentVariableIsEmpty("TROVIX_EXTRACT")) qputenv("TROVIX_EXTRACT", TROVIX_EXTRACT_PATH);
#if defined(TROVIX_RENDER_PATH)
  if (qEnvironmentVariableIsEmpty("TROVIX_RENDER")) qputenv("TROVIX_RENDER", TROVIX_RENDER_PATH);
#endif
  if (qEnvironmentVariableIsEmpty("QT_MEDIA_BACKEND")) qputenv("QT_MEDIA_BACKEND", "ffmpeg");
  ::testing::InitGoogleTest(&argc, argv);
  trovix::views::PrepareWebEngine();  // the quick view draws web pages
  QApplication app(argc, argv);
  return RUN_ALL_TESTS();
}
