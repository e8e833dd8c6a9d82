// The quick view's settings (section "QuickView") and the presentation it picks for an item.
//
// Range rules apply on reading, never on writing: a tab width outside 1..12 reads as 3, a
// preview length outside 1000..65536 reads as 8192, a font block that is not one 92-byte
// LOGFONTW is ignored, and a font that cannot be made falls back to the fixed font.
//
// Stateless functions; the settings record is plain data.
#pragma once

#include <QFont>

#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

#include "app/settings/settings_store.h"

namespace trovix::views {

// binMiscOptions bits read by the mode choice.
inline constexpr uint32_t kPreferThumbnail = 0x8;  // a picture before a preview handler (not for PDF)
inline constexpr uint32_t kListerFirst = 0x10;     // lister plug-ins before everything else

struct QuickViewSettings {
  uint32_t binMiscOptions = 7;
  int32_t nTabWidth = 3;
  std::vector<uint8_t> binLogFont;  // empty: the fixed font
  int32_t nTextPrevLen = 8192;
};

QuickViewSettings LoadQuickViewSettings(const app::SettingsStore& store);

// The text font of a LOGFONTW block (height, width, escapement, orientation, weight as 32-bit
// numbers, then italic, underline, strike-out, character set and four precision bytes, then
// 32 UTF-16 units of the face name): the face, the height as pixels, the weight and slant.
// The fixed font when the block is not 92 bytes or names no face.
QFont FontFromLogFont(const std::vector<uint8_t>& block);
// The block for a font (what the settings dialog writes).
std::vector<uint8_t> LogFontFromFont(const QFont& font);

// The presentations of the pane, by their numbers in the settings and the mode choice.
enum class PreviewMode {
  kNothing = 0,
  kHandler = 1,    // a built-in previewer: PDF pages and pictures, drawn by the renderer
  kBrowser = 2,    // web pages and XML
  kMedia = 3,      // the media player
  kLister = 4,     // a lister plug-in
  kThumbnail = 5,  // the item's picture, drawn by the renderer
  kText = 6,       // plain text, or rich text for RTF
};

// What the mode choice knows of an item, found on the UI thread without reading the file.
struct PreviewFacts {
  std::string extension;       // as the name has it; the choice lower-cases it
  bool folder = false;
  bool file_system = true;     // false: an archive member, read as a stream
  bool size_known = false;
  uint64_t size = 0;
  uint32_t max_stream_extract_size = 0x300000;  // nMaxStreamExtractSize; 0: members not read
  bool has_name = true;
};

// The extension lists of the choice (compared with the lower-cased extension).
bool IsBrowserExtension(std::string_view lower);
bool IsAudioExtension(std::string_view lower);
bool IsVideoExtension(std::string_view lower);
// Types the built-in previewer shows: "pdf" and the pictures the renderer reads.
bool IsHandlerExtension(std::string_view lower);

// Whether a member of an archive may be read as a stream: its size known, above 0, at most
// nMaxStreamExtractSize (0 switches member reading off).
bool MemberStreamAllowed(const PreviewFacts& facts);

// The presentations to try for an item, in order; the first that succeeds is shown (a
// presentation that fails falls through to the next). Empty: the pane shows nothing.
// `have_media`: the media player can be made; `have_lister`: a lister plug-in accepts the file.
std::vector<PreviewMode> CandidateModes(const PreviewFacts& facts, uint32_t misc_options, bool have_media,
                                        bool have_lister = false);

}  // namespace trovix::views
