// The messages the results list shows the user (10024 checkbox mode, 10025 no access, 10029
// and 10030 renaming, 10022 nothing found ...): a warning box, or speech when the user chose
// it, through ReportError. A test can set a hook that receives the message id instead, so that
// no modal box stops it.
//
// UI thread.
#pragma once

#include <cstdint>
#include <functional>

class QWidget;

namespace trovix::views {

using ListMessageHook = std::function<void(uint32_t string_id)>;

// Installs `hook` (an empty function removes it) and returns the previous one.
ListMessageHook SetListMessageHook(ListMessageHook hook);

// Shows the text of `string_id` over `parent`, or hands the id to the hook when one is set.
void ShowListMessage(QWidget* parent, uint32_t string_id);

}  // namespace trovix::views
