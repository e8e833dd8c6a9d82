// Spoken error messages.
//
// With "Talk enabled" on, the commonest errors are said by the computer's voice instead of
// shown in a box ("what is Sir looking for?", "where is that folder like?", "computer says
// no!"). Speech goes through espeak-ng on a thread of its own, so saying something never
// blocks the UI; where it cannot speak (no library, no sound device) Say is false and the text
// is shown instead, so nothing the user should hear is lost.
//
// SetSpeechHook lets a test hear what would be said (message_box.h does the same for boxes).
//
// UI thread, all of it (the speech thread is private to speech.cpp).
#pragma once

#include "views/program/message_box.h"

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

// While a hook is installed, Say hands its text to the hook (the hook's result is Say's)
// instead of the voice. An empty hook restores the voice. Returns the hook it replaced.
using SpeechHook = std::function<bool(const std::string&)>;
SpeechHook SetSpeechHook(SpeechHook hook);

}  // namespace trovix::views
