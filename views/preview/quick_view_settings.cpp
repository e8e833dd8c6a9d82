#include "views/preview/quick_view_settings.h"

#include <QFontDatabase>
#include <QFontInfo>
#include <QImageReader>

#include <algorithm>
#include <array>
#include <cstring>


namespace trovix::views {
namespace {

constexpr size_t kLogFontBytes = 92;
constexpr size_t kFaceOffset = 28;
constexpr size_t kFaceUnits = 32;

int32_t ReadI32(const std::vector<uint8_t>& b, size_t at) {
  return static_cast<int32_t>(uint32_t{b[at]} | uint32_t{b[at + 1]} << 8 | uint32_t{b[at + 2]} << 16 |
                              uint32_t{b[at + 3]} << 24);
}

void WriteI32(std::vector<uint8_t>* b, size_t at, int32_t v) {
  for (int i = 0; i < 4; ++i) (*b)[at + static_cast<size_t>(i)] = static_cast<uint8_t>(static_cast<uint32_t>(v) >> (8 * i));
}

std::string Lower(std::string_view s) {
  std::string out(s);
  std::transform(out.begin(), out.end(), out.begin(),
                 [](unsigned char c) { return static_cast<char>(c >= 'A' && c <= 'Z' ? c + 32 : c); });
  return out;
}

template <size_t N>
bool InList(std::string_view lower, const std::array<std::string_view, N>& list) {
  return std::find(list.begin(), list.end(), lower) != list.end();
}

constexpr std::array<std::string_view, 4> kBrowser = {"htm", "mht", "html", "xml"};
constexpr std::array<std::string_view, 21> kAudio = {"aif", "aiff", "au",  "mid", "midi", "rmi", "aifc",
                                                     "snd", "wav",  "mp3", "m3u", "cdda", "mp2", "mpa",
                                                     "ac3", "m4a",  "mod", "cda", "wma",  "flac", "ogg"};
constexpr std::array<std::string_view, 18> kVideo = {"tts", "wvx", "wmv", "3gp", "mkv", "flv",
                                                     "mp4", "mts", "asf", "avi", "m1v", "mov",
                                                     "mpe", "mpeg", "mpg", "mpv2", "qt", "asx"};

}  // namespace

QuickViewSettings LoadQuickViewSettings(const app::SettingsStore& store) {
  const app::SettingsSection section = store.Open("QuickView", true);
  QuickViewSettings s;
  s.binMiscOptions = section.GetFlags("binMiscOptions", 7);
  s.nTabWidth = section.GetInt("nTabWidth", 3);
  if (s.nTabWidth < 1 || s.nTabWidth > 12) s.nTabWidth = 3;
  s.nTextPrevLen = section.GetInt("nTextPrevLen", 8192);
  if (s.nTextPrevLen < 1000 || s.nTextPrevLen > 65536) s.nTextPrevLen = 8192;
  std::vector<uint8_t> block;
  if (section.ReadBinary("binLogFont", &block) == app::kSettingsOk && block.size() == kLogFontBytes)
    s.binLogFont = std::move(block);
  return s;
}

QFont FontFromLogFont(const std::vector<uint8_t>& block) {
  const QFont fixed = QFontDatabase::systemFont(QFontDatabase::FixedFont);
  if (block.size() != kLogFontBytes) return fixed;
  std::u16string face;
  for (size_t i = 0; i < kFaceUnits; ++i) {
    const char16_t unit = static_cast<char16_t>(block[kFaceOffset + 2 * i] | block[kFaceOffset + 2 * i + 1] << 8);
    if (unit == 0) break;
    face.push_back(unit);
  }
  const QString family = QString::fromStdU16String(face);
  // A face the system does not have "cannot be made": the fixed font stands in.
  if (family.isEmpty() || !QFontDatabase::families().contains(family, Qt::CaseInsensitive)) return fixed;
  QFont font(family);
  // A negative height is the character height, a positive one the cell height; either way the
  // nearest pixel size is what the text is read in. 0 keeps the default size.
  const int32_t height = ReadI32(block, 0);
  if (height != 0 && height > -1000 && height < 1000) font.setPixelSize(std::abs(height));
  const int32_t weight = ReadI32(block, 16);
  if (weight >= 1 && weight <= 1000) font.setWeight(static_cast<QFont::Weight>(std::clamp(weight, 100, 900)));
  font.setItalic(block[20] != 0);
  font.setUnderline(block[21] != 0);
  font.setStrikeOut(block[22] != 0);
  return font;
}

std::vector<uint8_t> LogFontFromFont(const QFont& font) {
  std::vector<uint8_t> block(kLogFontBytes, 0);
  const int pixels = font.pixelSize() > 0 ? font.pixelSize() : QFontInfo(font).pixelSize();
  WriteI32(&block, 0, -pixels);
  WriteI32(&block, 16, font.weight());
  block[20] = font.italic() ? 1 : 0;
  block[21] = font.underline() ? 1 : 0;
  block[22] = font.strikeOut() ? 1 : 0;
  const std::u16string face = font.family().left(static_cast<int>(kFaceUnits) - 1).toStdU16String();
  for (size_t i = 0; i < face.size(); ++i) {
    block[kFaceOffset + 2 * i] = static_cast<uint8_t>(face[i] & 0xFF);
    block[kFaceOffset + 2 * i + 1] = static_cast<uint8_t>(face[i] >> 8);
  }
  return block;
}

bool IsBrowserExtension(std::string_view lower) { return InList(lower, kBrowser); }
bool IsAudioExtension(std::string_view lower) { return InList(lower, kAudio); }
bool IsVideoExtension(std::string_view lower) { return InList(lower, kVideo); }

bool IsHandlerExtension(std::string_view lower) {
  if (lower == "pdf") return true;
  // The readers' list only; the renderer does the reading. Vector pictures need a whole GUI
  // application, which the renderer does not start.
  static const QList<QByteArray> formats = [] {
    QList<QByteArray> list = QImageReader::supportedImageFormats();
    list.removeAll("svg");
    list.removeAll("svgz");
    return list;
  }();
  return !lower.empty() && formats.contains(QByteArray(lower.data(), static_cast<qsizetype>(lower.size())));
}

bool MemberStreamAllowed(const PreviewFacts& facts) {
  return facts.file_system || (facts.max_stream_extract_size != 0 && facts.size_known && facts.size > 0 &&
                               facts.size <= facts.max_stream_extract_size);
}

std::vector<PreviewMode> CandidateModes(const PreviewFacts& facts, uint32_t misc_options, bool have_media,
                                        bool have_lister) {
  std::vector<PreviewMode> modes;
  // (A limit of 260 characters on the path kept long paths out of the previewers where the
  // system could not open them; nothing here has that limit, so every path is previewed.)
  if (facts.folder || !facts.has_name) return modes;
  const std::string ext = Lower(facts.extension);
  const bool stream_ok = MemberStreamAllowed(facts);
  if ((misc_options & kListerFirst) && have_lister && facts.file_system) modes.push_back(PreviewMode::kLister);
  if (IsBrowserExtension(ext) && stream_ok) modes.push_back(PreviewMode::kBrowser);
  // The player is given a path: only items of the file system.
  if ((IsAudioExtension(ext) || IsVideoExtension(ext)) && facts.file_system && have_media)
    modes.push_back(PreviewMode::kMedia);
  const bool picture = IsHandlerExtension(ext) && ext != "pdf";
  // With kPreferThumbnail, a picture goes to the thumbnail rather than to the previewer.
  if (IsHandlerExtension(ext) && stream_ok && !((misc_options & kPreferThumbnail) && picture))
    modes.push_back(PreviewMode::kHandler);
  if (!(misc_options & kListerFirst) && have_lister) modes.push_back(PreviewMode::kLister);
  if (IsHandlerExtension(ext) && stream_ok) modes.push_back(PreviewMode::kThumbnail);
  modes.push_back(PreviewMode::kText);
  return modes;
}

}  // namespace trovix::views
