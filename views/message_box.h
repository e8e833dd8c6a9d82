// The program's message boxes. Every box the user must answer goes through ShowMessage, so a
// test can install a hook that records the box and answers it instead of a person (a modal box
// would wait for ever in an offscreen test).
//
// UI thread.
#pragma once

#include <QMessageBox>
#include <QString>

#include <cstdint>
#include <functional>

namespace trovix::views {

struct MessageRecord {
  QMessageBox::Icon icon = QMessageBox::NoIcon;
  QString caption;
  QString text;
  QMessageBox::StandardButtons buttons = QMessageBox::Ok;
};

// Returns the button chosen.
QMessageBox::StandardButton ShowMessage(QWidget* parent, const MessageRecord& message);

// The text of a string id with "%1" replaced by `argument` when given.
QString StringText(uint32_t id, const QString& argument = QString());

// A box with the text of a string id (and its "%1"), the caption "trovix".
QMessageBox::StandardButton ShowStringMessage(QWidget* parent, QMessageBox::Icon icon, uint32_t id,
                                              const QString& argument = QString(),
                                              QMessageBox::StandardButtons buttons = QMessageBox::Ok);

// Tests: every box goes to `hook` and its answer is taken; an empty hook restores real boxes.
using MessageHook = std::function<QMessageBox::StandardButton(const MessageRecord&)>;
void SetMessageHook(MessageHook hook);

}  // namespace trovix::views
