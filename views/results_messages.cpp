#include "views/results_messages.h"

#include <utility>

#include "views/speech.h"

namespace trovix::views {
namespace {

ListMessageHook& Hook() {
  static ListMessageHook hook;
  return hook;
}

}  // namespace

ListMessageHook SetListMessageHook(ListMessageHook hook) { return std::exchange(Hook(), std::move(hook)); }

void ShowListMessage(QWidget* parent, uint32_t string_id) {
  if (Hook()) {
    Hook()(string_id);
    return;
  }
  ReportError(parent, string_id, nullptr);
}

}  // namespace trovix::views
