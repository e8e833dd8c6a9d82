// Spoken error messages: with "Talk enabled" on, the commonest errors are said by the
// computer's voice instead of shown in a box ("what is Sir looking for?", "where is that folder
// like?", "computer says no!"). Speech goes through espeak-ng; where it cannot speak (no
// library, no sound device) the text is shown instead, so nothing the user should hear is lost.
//
// UI thread.
#pragma once

#include <cstdint>
#include <string>

class QWidget;

namespace trovix::views {

// The "Talk enabled" option, as the frame read it from the settings.
void SetTalkEnabled(bool enabled);
bool TalkEnabled();

// Says `text` when talking is enabled and a voice is available; true when it was said.
bool Say(const std::string& text);

// An error for the user: spoken as `spoken` when talking is enabled and speech works (nothing
// is shown then), otherwise the text of `string_id` in a warning box. `spoken` may be null: the
// box is always shown.
void ReportError(QWidget* parent, uint32_t string_id, const char* spoken);

}  // namespace trovix::views
