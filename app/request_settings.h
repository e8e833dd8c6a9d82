// The settings that shape a search, copied into the engine's request in one place, so that the
// console and the desktop program read documents, silence advice and list simple properties
// alike. Stateless; thread-safe.
#pragma once

#include <cstdint>

#include "app/settings/settings.h"
#include "engine/extraction/contents_reader.h"
#include "engine/search/search_panel.h"

namespace trovix::app {

// How documents are read: types left out of contents searches, the largest stream extracted,
// the contents flags.
void ApplySettingsToContents(const Settings& settings, engine::ContentsOptions* contents);

// The contents options above, the search flags, the advice the user silenced and the simple
// property list. Of `binFlags`, only the bits in `bin_flags_taken` are taken from the settings
// (the console has options of its own for the others); the rest of request->bin_flags is kept.
void ApplySettingsToRequest(const Settings& settings, uint32_t bin_flags_taken, engine::SearchRequest* request);

}  // namespace trovix::app
