// The picture map's test program: real web views, so the web engine is prepared before the
// application object exists, as the desktop program does it. Offscreen unless the caller chose
// another platform.
#include <gtest/gtest.h>

#include <QApplication>

#include "views/program/sanitizer_defaults.h"
#include "views/program/web_engine_setup.h"

int main(int argc, char** argv) {
  if (qEnvironmentVariableIsEmpty("QT_QPA_PLATFORM")) qputenv("QT_QPA_PLATFORM", "offscreen");
  ::testing::InitGoogleTest(&argc, argv);
  trovix::views::PrepareWebEngine();
  QApplication app(argc, argv);
  return RUN_ALL_TESTS();
}
