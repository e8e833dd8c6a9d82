#include "views/program/app_icon.h"

// Q_INIT_RESOURCE declares a function of the global namespace, so it is called from here.
static void RegisterTrovixResource() { Q_INIT_RESOURCE(trovix); }

namespace trovix::views {

QIcon AppIcon() {
  static const bool registered = (RegisterTrovixResource(), true);
  (void)registered;
  return QIcon(QStringLiteral(":/trovix.svg"));
}

}  // namespace trovix::views
