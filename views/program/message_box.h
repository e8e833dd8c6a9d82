// The program's message boxes. Every box that tells or asks the user something goes through
// ShowMessageBox. A test installs a hook (SetMessageBoxHook, or the scoped MessageBoxRecorder)
// that records the box and answers it instead of opening a modal window, which would wait for
// ever in an offscreen test.
//
// UI thread.
#pragma once

#include <QMessageBox>
#include <QString>

#include <cstdint>
#include <functional>
#include <string>
#include <vector>

class QWidget;

namespace trovix::views {

// One message box as the program asks for it.
struct MessageBoxCall {
  uint32_t string_id = 0;  // 0 for a text that is not from the string table (a syntax error)
  std::string caption;
  std::string text;
  QMessageBox::Icon icon = QMessageBox::NoIcon;
  QMessageBox::StandardButtons buttons = QMessageBox::Ok;
};

// Shows a modal box (or hands it to the hook) and returns the button chosen. An empty caption
// becomes the program's name.
QMessageBox::StandardButton ShowMessageBox(QWidget* parent, const MessageBoxCall& call);
// The text of `string_id` in a box with `icon`, its "%1" replaced by `argument` when given.
QMessageBox::StandardButton ShowStringBox(QWidget* parent, uint32_t string_id, QMessageBox::Icon icon,
                                          QMessageBox::StandardButtons buttons = QMessageBox::Ok,
                                          const QString& argument = QString());

// While a hook is installed, boxes go to it instead of the screen; its return value is the
// button "pressed". An empty hook restores the real boxes. Returns the hook it replaced.
using MessageBoxHook = std::function<QMessageBox::StandardButton(const MessageBoxCall&)>;
MessageBoxHook SetMessageBoxHook(MessageBoxHook hook);

// For tests: records every box shown while it lives and answers each with `answer` (the first
// of the box's buttons when `answer` is NoButton). Restores the previous hook when it ends.
class MessageBoxRecorder {
 public:
  explicit MessageBoxRecorder(QMessageBox::StandardButton answer = QMessageBox::NoButton);
  ~MessageBoxRecorder();
  MessageBoxRecorder(const MessageBoxRecorder&) = delete;
  MessageBoxRecorder& operator=(const MessageBoxRecorder&) = delete;

  const std::vector<MessageBoxCall>& boxes() const { return boxes_; }
  void clear() { boxes_.clear(); }

 private:
  std::vector<MessageBoxCall> boxes_;
  QMessageBox::StandardButton answer_;
  MessageBoxHook previous_;
};

}  // namespace trovix::views
