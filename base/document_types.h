// The document types Trovix reads beyond plain text, by lower-case extension: those whose text
// the extraction helper reads, and those whose own properties (title, author, pages ...) it
// reads. Shared by the search process, which decides what to ask for, and the helper, which
// answers; header-only so that neither links the other.
#pragma once

#include <string_view>

namespace trovix::base {

inline constexpr std::string_view kOoxmlTypes[] = {"docx", "docm", "dotx", "dotm", "xlsx", "xlsm",
                                                  "xltx", "xltm", "pptx", "pptm", "ppsx", "ppsm", "potx"};
inline constexpr std::string_view kOdfTypes[] = {"odt", "ods", "odp", "ott", "ots", "otp", "odg"};
inline constexpr std::string_view kHtmlTypes[] = {"htm", "html", "xhtml"};
// Word, Excel and PowerPoint 97-2003: compound files.
inline constexpr std::string_view kLegacyOfficeTypes[] = {"doc", "dot", "xls", "xlt", "ppt", "pps", "pot"};
inline constexpr std::string_view kEpubTypes[] = {"epub"};
// Mail: single messages and mailboxes (their attachments are members, as an archive's are).
inline constexpr std::string_view kMailTypes[] = {"eml", "mbox"};
// Word processors before OOXML and ODF, read through the librevenge importers.
inline constexpr std::string_view kWordProcessorTypes[] = {"wpd", "wp", "wp5", "wp6", "wps", "wri", "mcw", "mwd", "cwk"};
// Single compressed files: the file inside is read by its own reader, only when the search
// asks for it (binSearchFlags kSearchFlagSearchZip, --search-zip).
inline constexpr std::string_view kCompressedTypes[] = {"gz", "bz2", "xz", "zst"};
// Pictures whose EXIF, XMP and IPTC the helper reads (of HEIC and HEIF at least the size, where
// the exiv2 of this platform cannot read them).
inline constexpr std::string_view kPhotoTypes[] = {"jpg", "jpeg", "jpe", "jfif", "tif", "tiff", "png", "webp",
                                                  "dng", "cr2", "nef", "heic", "heif"};
// Sound files whose tags and stream properties the helper reads.
inline constexpr std::string_view kMusicTypes[] = {"mp3", "flac", "ogg", "oga", "opus", "m4a", "m4b",
                                                  "wma", "wav", "aif", "aiff", "aifc", "ape"};
// Windows programs and libraries whose signature the helper checks.
inline constexpr std::string_view kProgramTypes[] = {"exe", "dll", "sys", "ocx", "scr", "cpl", "efi", "drv",
                                                    "mui", "winmd", "msstyles", "ax"};
// Films whose length the helper reads where the tag library knows the container.
inline constexpr std::string_view kVideoTypes[] = {"mp4", "m4v", "mov", "wmv", "asf"};

// Whether a file without an extension is a mailbox, from its first bytes: it opens with the
// separator line of the mbox format ("From " the sender, then the date with its time and
// year) and a header field follows. Prose that begins with "From " is no mailbox.
constexpr bool LooksLikeMailbox(std::string_view head) {
  if (head.substr(0, 5) != "From ") return false;
  const size_t eol = head.find('\n');
  if (eol == std::string_view::npos || eol > 1000) return false;
  const std::string_view line = head.substr(5, eol - 5);
  auto digit = [](char c) { return c >= '0' && c <= '9'; };
  bool time = false, year = false;
  for (size_t i = 0; i + 4 <= line.size(); ++i) {
    if (!time && i + 5 <= line.size() && digit(line[i]) && digit(line[i + 1]) && line[i + 2] == ':' &&
        digit(line[i + 3]) && digit(line[i + 4]))
      time = true;
    else if (time && line[i - 1] == ' ' && digit(line[i]) && digit(line[i + 1]) && digit(line[i + 2]) &&
             digit(line[i + 3]) && (i + 4 == line.size() || line[i + 4] == ' ' || line[i + 4] == '\r'))
      year = true;
  }
  if (!time || !year) return false;
  const std::string_view next = head.substr(eol + 1);
  const size_t colon = next.find(':');
  if (colon == 0 || colon == std::string_view::npos || colon > 76) return false;
  for (char c : next.substr(0, colon))
    if (c <= ' ' || c > '~') return false;
  return true;
}

template <size_t N>
constexpr bool IsOneOf(std::string_view extension, const std::string_view (&types)[N]) {
  for (std::string_view t : types)
    if (t == extension) return true;
  return false;
}

// Text read by the helper's document readers (plain text and RTF are read in process).
constexpr bool HasDocumentTextReader(std::string_view extension) {
  return extension == "pdf" || IsOneOf(extension, kOoxmlTypes) || IsOneOf(extension, kOdfTypes) ||
         IsOneOf(extension, kHtmlTypes) || IsOneOf(extension, kLegacyOfficeTypes) ||
         IsOneOf(extension, kEpubTypes) || IsOneOf(extension, kMailTypes) ||
         IsOneOf(extension, kWordProcessorTypes);
}

// Properties read by the helper's metadata readers, by family.
constexpr bool HasDocumentPropertyReader(std::string_view extension) {
  return extension == "pdf" || IsOneOf(extension, kOoxmlTypes) || IsOneOf(extension, kOdfTypes) ||
         IsOneOf(extension, kLegacyOfficeTypes) || IsOneOf(extension, kEpubTypes) || extension == "eml";
}
constexpr bool HasSignatureReader(std::string_view extension) { return IsOneOf(extension, kProgramTypes); }
constexpr bool HasPhotoPropertyReader(std::string_view extension) { return IsOneOf(extension, kPhotoTypes); }
constexpr bool HasMediaPropertyReader(std::string_view extension) {
  return IsOneOf(extension, kMusicTypes) || IsOneOf(extension, kVideoTypes);
}

}  // namespace trovix::base
