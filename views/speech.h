// Spoken error messages and the program's message boxes.
//
// With "Talk enabled" on, the commonest errors are said by the computer's voice instead of
// shown in a box ("what is Sir looking for?", "where is that folder like?", "computer says
// no!"). Speech goes through espeak-ng on a thread of its own, so saying something never
// blocks the UI; where it cannot speak (no library, no sound device) Say is false and the text
// is shown instead, so nothing the user should hear is lost.
//
// Every box that tells or asks the user something goes through ShowMessageBox. A test installs
// a hook (SetMessageBoxHook, or the scoped MessageBoxRecorder) that records the box and answers
// it instead of opening a modal window; SetSpeechHook does the same for speech.
//
// UI thread, all of it (the speech thread is private to speech.cpp).
#pragma once

#include <QMessageBox>
#include <QString>

#include <cstdint>
#include <functional>
#include <string>
#include <vector>

class QWidget;

namespace trovix::views {

// The "Talk enabled" option, as the frame read it from the settings.
void SetTalkEnabled(bool enabled);
bool TalkEnabled();

// Says `text` when talking is enabled and a voice is available; true when it was handed to the
// voice (it is spoken in the background). The voice is set up on the first call only.
bool Say(const std::string& text);

// An error for the user: spoken as `spoken` when talking is enabled and speech works (nothing
// is shown then), otherwise the text of `string_id` in a warning box. `spoken` may be null: the
// box is always shown.
void ReportError(QWidget* parent, uint32_t string_id, const char* spoken);

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
// The text of `string_id` in a box with `icon`.
QMessageBox::StandardButton ShowStringBox(QWidget* parent, uint32_t string_id, QMessageBox::Icon icon,
                                          QMessageBox::StandardButtons buttons = QMessageBox::Ok);

// While a hook is installed, boxes go to it instead of the screen; its return value is the
// button "pressed". An empty hook restores the real boxes. Returns the hook it replaced.
using MessageBoxHook = std::function<QMessageBox::StandardButton(const MessageBoxCall&)>;
MessageBoxHook SetMessageBoxHook(MessageBoxHook hook);

// While a hook is installed, Say hands its text to the hook (the hook's result is Say's)
// instead of the voice. An empty hook restores the voice. Returns the hook it replaced.
using SpeechHook = std::function<bool(const std::string&)>;
SpeechHook SetSpeechHook(SpeechHook hook);

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
