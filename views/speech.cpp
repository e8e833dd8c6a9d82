#include "views/speech.h"

#include <QMessageBox>

#include "base/string_table.h"

namespace trovix::views {
namespace {
bool g_talk = false;
}

void SetTalkEnabled(bool enabled) { g_talk = enabled; }
bool TalkEnabled() { return g_talk; }
bool Say(const std::string&) { return false; }

void ReportError(QWidget* parent, uint32_t string_id, const char* spoken) {
  if (spoken && TalkEnabled() && Say(spoken)) return;
  QMessageBox::warning(parent, "trovix", QString::fromUtf8(base::LoadString(string_id).data(),
                                                            static_cast<int>(base::LoadString(string_id).size())));
}

}  // namespace trovix::views
