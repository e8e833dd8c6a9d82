// The kind of an item and its media type, decided from its name and status alone (no byte of
// the file is read, so they cost nothing and are safe for any file):
//   System.Kind      the platform's kind names (picture, music, video, document, program,
//                    folder, link, ...) by extension; an executable file without a known
//                    extension is a program;
//   System.MIMEType  the media type the desktop's shared MIME database gives the extension
//                    (its globs file), so Trovix agrees with the file manager.
#include <sstream>
#include <string>
#include <unordered_map>
#include <vector>

#include "base/file_name.h"
#include "platform/regular_file.h"
#include "props/handler_registry.h"
#include "props/system_property_table.h"

namespace trovix::props {
namespace {

struct KindRow {
  const char* kind;
  std::vector<std::string_view> extensions;
};

const std::vector<KindRow>& KindTable() {
  static const std::vector<KindRow> table = {
      {"picture", {"jpg", "jpeg", "jpe", "jfif", "png", "gif", "bmp", "tif", "tiff", "webp", "heic", "heif", "svg",
                   "ico", "dng", "cr2", "cr3", "nef", "arw", "orf", "rw2", "raf", "psd", "xcf", "avif"}},
      {"music", {"mp3", "flac", "ogg", "oga", "opus", "m4a", "m4b", "wma", "wav", "aif", "aiff", "aifc", "ape", "mid",
                 "midi", "aac", "wv", "mka"}},
      {"video", {"mp4", "m4v", "mov", "mkv", "avi", "wmv", "asf", "webm", "mpg", "mpeg", "ts", "m2ts", "3gp", "flv",
                 "ogv"}},
      {"document", {"pdf", "doc", "docx", "docm", "dot", "dotx", "odt", "ott", "rtf", "txt", "md", "tex", "xls", "xlsx",
                    "xlsm", "ods", "csv", "ppt", "pptx", "pptm", "ppsx", "odp", "htm", "html", "xhtml", "epub",
                    "djvu", "xps", "odg"}},
      {"program", {"exe", "msi", "com", "bat", "cmd", "ps1", "sh", "appimage", "run", "jar", "apk", "deb", "rpm"}},
      {"playlist", {"m3u", "m3u8", "pls", "xspf", "wpl"}},
      {"email", {"eml", "msg", "mbox"}},
      {"contact", {"vcf", "vcard"}},
      {"calendar", {"ics", "ical", "vcs"}},
      {"link", {"lnk", "url", "desktop", "webloc"}},
  };
  return table;
}

const char* KindOfExtension(const std::string& extension) {
  static const std::unordered_map<std::string_view, const char*> by_extension = [] {
    std::unordered_map<std::string_view, const char*> map;
    for (const KindRow& row : KindTable())
      for (std::string_view e : row.extensions) map.emplace(e, row.kind);
    return map;
  }();
  auto it = by_extension.find(extension);
  return it == by_extension.end() ? nullptr : it->second;
}

// "*.ext" patterns of the shared MIME database, weight:type:pattern per line; the first line
// for an extension is its heaviest, since the file is sorted by weight.
constexpr size_t kGlobsFileLimit = 8u << 20;

std::unordered_map<std::string, std::string> LoadGlobs() {
  std::unordered_map<std::string, std::string> map;
  for (const char* file : {"/usr/share/mime/globs2", "/usr/local/share/mime/globs2"}) {
    // Read as any input file is: only a regular file of bounded size (the database is about
    // 100 KB), so a special file in its place costs nothing.
    std::string text;
    if (platform::ReadRegularFile(file, &text, kGlobsFileLimit) != 0) continue;
    std::istringstream in(text);
    std::string line;
    while (std::getline(in, line)) {
      if (line.empty() || line[0] == '#') continue;
      const size_t a = line.find(':');
      const size_t b = a == std::string::npos ? a : line.find(':', a + 1);
      if (b == std::string::npos) continue;
      std::string pattern = line.substr(b + 1);
      if (const size_t flags = pattern.find(':'); flags != std::string::npos) {
        if (pattern.find("cs", flags) != std::string::npos) continue;  // case-sensitive globs are rare
        pattern.resize(flags);
      }
      if (pattern.size() < 3 || pattern.compare(0, 2, "*.") != 0 ||
          pattern.find_first_of("*?[", 2) != std::string::npos)
        continue;
      map.emplace(AsciiLower(pattern.substr(2)), line.substr(a + 1, b - a - 1));
    }
  }
  return map;
}

const std::string* MimeTypeOf(const std::string& extension) {
  static const std::unordered_map<std::string, std::string> globs = LoadGlobs();
  auto it = globs.find(extension);
  return it == globs.end() ? nullptr : &it->second;
}

class KindHandler : public PropertyHandler {
 public:
  KindHandler() {
    produces_.push_back({"System.Kind", "Kind", "What sort of item this is: picture, music, document ...",
                         kPropIndexed, nullptr});
    produces_.push_back({"System.MIMEType", "Media type", "The item's media type, as the desktop knows it",
                         kPropIndexed, nullptr});
    kind_hash_ = FindSystemProperty("System.Kind")->key.Hash();
  }
  std::string_view Name() const override { return "kinds"; }
  const std::vector<ProducedProperty>& Produces() const override { return produces_; }
  bool Accepts(ShellItem&) const override { return true; }

  HRESULT GetValue(ShellItem& item, const PropertyInfo& property, PropValue* out) const override {
    const std::string extension = item.IsFolder() ? std::string() : LowerExtension(item.DisplayName());
    if (property.hash == kind_hash_) {
      const char* kind = nullptr;
      if (item.IsFolder()) {
        kind = "folder";
      } else if (const platform::FileStatus* st = item.Status(); st && st->IsSymlink()) {
        kind = "link";
      } else {
        kind = KindOfExtension(extension);
        // An executable file without an extension that names its kind is a program.
        if (!kind && item.Status() && (item.Status()->mode & 0111) && item.Status()->type == platform::FileType::kRegular)
          kind = "program";
      }
      if (!kind) return S_FALSE;
      *out = PropValue::TextVector({kind});
      return S_OK;
    }
    if (item.IsFolder()) {
      *out = PropValue::Text("inode/directory");
      return S_OK;
    }
    const std::string* type = extension.empty() ? nullptr : MimeTypeOf(extension);
    if (!type) return S_FALSE;
    *out = PropValue::Text(*type);
    return S_OK;
  }

 private:
  std::vector<ProducedProperty> produces_;
  uint32_t kind_hash_ = 0;
};

}  // namespace

std::unique_ptr<PropertyHandler> MakeKindHandler() { return std::make_unique<KindHandler>(); }

}  // namespace trovix::props
