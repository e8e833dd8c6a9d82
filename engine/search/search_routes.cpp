#include "engine/search/search_routes.h"

namespace trovix::engine {

VolumeScanRoute& NoVolumeScan() {
  static VolumeScanRoute none;
  return none;
}

IndexRoute& NoIndex() {
  static IndexRoute none;
  return none;
}

}  // namespace trovix::engine
