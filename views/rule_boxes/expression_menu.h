// The menu of the expression editor (the Complex rule): every operator and function of the
// expression language, a few sample constants, and the file properties by group, each
// inserting its text at the caret of a line edit. The labels come from the string table
// ("And [&]", "Find in file [grep()]" ...); the text inserted is the part in square brackets.
//
// UI thread.
#pragma once

#include <QString>

#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

class QLineEdit;
class QMenu;
class QWidget;

namespace trovix::views {

// The string ids of the menu, operators and constants first, then the functions, in menu order.
std::vector<uint32_t> ExpressionMenuIds();
// The string id of the label of the property sub-menu.
inline constexpr uint32_t kExpressionPropertyMenuId = 11343;

// The text a menu label inserts: what stands between its first "[" and its last "]".
QString InsertTextOf(const QString& label);

// How a property is written in an expression: "$System.Size", or "${...}" for a name that the
// bare form would cut short.
std::string PropertyReference(std::string_view name);

// Inserts `text` at the caret of `edit`, replacing the selection. For a bracket or a function
// ("( )", "len()", "mid( , , )") a selection becomes the first thing inside the brackets, and the
// caret is left there when nothing was selected, ready for the argument.
void InsertExpressionText(QLineEdit* edit, const QString& text);

// A menu, owned by `parent`, whose items insert into `edit`. Each item's data is its string id. The property groups fill when they
// are first opened.
QMenu* CreateExpressionMenu(QLineEdit* edit, QWidget* parent);

}  // namespace trovix::views
