#include "views/rule_dialogs.h"

namespace trovix::views {

bool EditTextRule(QWidget*, rules::Rule&) { return false; }
bool EditNumberRule(QWidget*, rules::Rule&) { return false; }
bool EditComplexRule(QWidget*, std::string*) { return false; }

}  // namespace trovix::views
