// Keyboard mnemonics ("&x" in a text) for menu items and dialog buttons, so that every command
// can be reached with Alt and a letter and a screen reader can say which letter. Texts that
// already carry one keep it; the others get the first letter not yet taken in their menu or
// dialog, preferring the first letter of a word. When every letter is taken (a menu of a few
// hundred properties) an item shares the first letter of its text: pressing it again then
// moves on to the next item with that letter, as menus do.
//
// UI thread.
#pragma once

#include <QString>

class QMenu;
class QWidget;

namespace trovix::views {

// The letter `text` has as its mnemonic, lower-cased; a null QChar when it has none ("&&" is an
// ampersand, not a mnemonic).
QChar MnemonicOf(const QString& text);
// A user's text (a saved search's name) as a menu item shows it: its ampersands doubled.
QString EscapeMnemonics(const QString& text);

// Gives every item of `menu`, and of its submenus, a mnemonic.
void GiveMnemonics(QMenu* menu);
// Gives every push button, check box and radio button of the window that holds `widget` (a
// dialog, a message box) a mnemonic, keeping those its controls have. Call it when the window
// is complete, before it is shown.
void GiveMnemonics(QWidget* widget);

}  // namespace trovix::views
