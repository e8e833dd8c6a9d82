// The program's icon, drawn once as an SVG (data/desktop/trovix.svg, installed for the desktop's
// launchers too) and built into the program as the resource ":/trovix.svg".
//
// UI thread.
#pragma once

#include <QIcon>

namespace trovix::views {

// The icon for windows and dialogs. Makes sure the resource is registered first: the views are
// a static library, whose resource the linker would otherwise leave out.
QIcon AppIcon();

}  // namespace trovix::views
