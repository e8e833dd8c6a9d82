// What the embedded web engine needs before the application object exists. The picture map
// (and any other web page the program shows) runs in Qt WebEngine, which reads its switches
// from the environment and shares its graphics contexts only when told so before the first
// window. Call PrepareWebEngine once, first thing in main, before QApplication (the test
// programs that open web views do the same).
#pragma once

namespace trovix::views {

void PrepareWebEngine();

}  // namespace trovix::views
