#include "views/program/message_box.h"

#include <QGuiApplication>

#include "base/string_table.h"
#include "views/program/mnemonics.h"
#include "views/qt_text.h"

namespace trovix::views {
namespace {

MessageBoxHook g_box_hook;

}  // namespace

QMessageBox::StandardButton ShowMessageBox(QWidget* parent, const MessageBoxCall& call) {
  MessageBoxCall shown = call;
  if (shown.caption.empty()) shown.caption = QGuiApplication::applicationDisplayName().toStdString();
  if (g_box_hook) return g_box_hook(shown);
  QMessageBox box(shown.icon, FromUtf8(shown.caption), FromUtf8(shown.text), shown.buttons, parent);
  GiveMnemonics(&box);
  return static_cast<QMessageBox::StandardButton>(box.exec());
}

QMessageBox::StandardButton ShowStringBox(QWidget* parent, uint32_t string_id, QMessageBox::Icon icon,
                                          QMessageBox::StandardButtons buttons, const QString& argument) {
  MessageBoxCall call;
  call.string_id = string_id;
  call.text = std::string(base::LoadString(string_id));
  if (!argument.isNull()) {
    const size_t at = call.text.find("%1");
    if (at != std::string::npos) call.text.replace(at, 2, argument.toStdString());
  }
  call.icon = icon;
  call.buttons = buttons;
  return ShowMessageBox(parent, call);
}

MessageBoxHook SetMessageBoxHook(MessageBoxHook hook) {
  std::swap(g_box_hook, hook);
  return hook;
}

MessageBoxRecorder::MessageBoxRecorder(QMessageBox::StandardButton answer) : answer_(answer) {
  previous_ = SetMessageBoxHook([this](const MessageBoxCall& call) {
    boxes_.push_back(call);
    if (answer_ != QMessageBox::NoButton) return answer_;
    // The first button the box offers, in the order of the StandardButton values.
    for (uint32_t bit = QMessageBox::FirstButton; bit <= QMessageBox::LastButton; bit <<= 1)
      if (call.buttons & bit) return static_cast<QMessageBox::StandardButton>(bit);
    return QMessageBox::Ok;
  });
}

MessageBoxRecorder::~MessageBoxRecorder() { SetMessageBoxHook(std::move(previous_)); }

}  // namespace trovix::views
