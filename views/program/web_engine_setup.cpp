#include "views/program/web_engine_setup.h"

#include <unistd.h>

#include <QCoreApplication>

namespace trovix::views {

void PrepareWebEngine() {
  // The engine's renderer sandbox refuses to start for root and the page then never loads.
  // Root has nothing left for that sandbox to take away, so it is switched off for root only;
  // every other user keeps it.
  if (::geteuid() == 0 && qEnvironmentVariableIsEmpty("QTWEBENGINE_DISABLE_SANDBOX"))
    qputenv("QTWEBENGINE_DISABLE_SANDBOX", "1");
  // A web view in a widget window needs contexts shared with the application's own.
  QCoreApplication::setAttribute(Qt::AA_ShareOpenGLContexts);
}

}  // namespace trovix::views
