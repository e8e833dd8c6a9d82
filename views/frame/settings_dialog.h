// The Settings dialog (F12): the general options of binFlags the desktop program reads, and
// the number of typed letters after which the results list jumps to the autofilter box. Modal;
// UI thread only.
#pragma once

#include <cstdint>

#include <QWidget>

#include "app/settings/settings.h"

namespace trovix::views {

// Options of binFlags the frame reads.
inline constexpr uint32_t kFlagSortFoldersFirst = 0x2;
inline constexpr uint32_t kFlagNaturalSort = 0x4;
// "Talk enabled": "Use computer speech for common error messages instead of messageboxes".
inline constexpr uint32_t kFlagTalkEnabled = 0x00400000;

// Shows the dialog over `parent` with the values of *settings. On OK the changed values are
// written back into *settings and true is returned; on Cancel *settings is untouched.
bool EditSettings(QWidget* parent, app::Settings* settings);

}  // namespace trovix::views
