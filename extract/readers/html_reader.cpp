#include "extract/readers/html_reader.h"

#include <libxml/HTMLparser.h>
#include <libxml/parserInternals.h>

#include <algorithm>
#include <array>
#include <cstdint>
#include <cstring>
#include <memory>
#include <string>
#include <string_view>

#include "extract/archive/archive_names.h"
#include "extract/safe_xml.h"
#include "text/plain_text_reader.h"
#include "base/document_types.h"

namespace trovix::extract {
namespace {

constexpr int kHtmlOptions = HTML_PARSE_NONET | HTML_PARSE_NOERROR | HTML_PARSE_NOWARNING | HTML_PARSE_RECOVER;
constexpr size_t kBlockBytes = 64 * 1024;

// What an element means for the text. Parsers hand over each start and end tag, so the name
// is looked up once per tag, as a number: its lowered letters packed into 128 bits, searched
// in a table sorted by that number (no string compares).
enum class Role : uint8_t { kInline, kDropped, kBlock, kPre, kBreak, kCell };

using NameKey = unsigned __int128;
constexpr size_t kMaxNameKey = sizeof(NameKey);

// The key of a name lowered to ASCII; 0 for a name longer than a key holds (no table name is).
constexpr NameKey KeyOf(std::string_view name) {
  if (name.size() > kMaxNameKey) return 0;
  NameKey key = 0;
  for (char c : name) key = (key << 8) | static_cast<uint8_t>(c >= 'A' && c <= 'Z' ? c + 32 : c);
  return key;
}

struct NamedRole {
  NameKey key;
  Role role;
};

constexpr NamedRole Named(std::string_view name, Role role) { return {KeyOf(name), role}; }

const std::array<NamedRole, 42>& Roles() {
  static const std::array<NamedRole, 42> table = [] {
    std::array<NamedRole, 42> t = {
        Named("address", Role::kBlock),  Named("article", Role::kBlock),    Named("aside", Role::kBlock),
        Named("blockquote", Role::kBlock), Named("body", Role::kBlock),     Named("br", Role::kBreak),
        Named("caption", Role::kBlock),  Named("dd", Role::kBlock),         Named("div", Role::kBlock),
        Named("dl", Role::kBlock),       Named("dt", Role::kBlock),         Named("figcaption", Role::kBlock),
        Named("figure", Role::kBlock),   Named("footer", Role::kBlock),     Named("form", Role::kBlock),
        Named("h1", Role::kBlock),       Named("h2", Role::kBlock),         Named("h3", Role::kBlock),
        Named("h4", Role::kBlock),       Named("h5", Role::kBlock),         Named("h6", Role::kBlock),
        Named("header", Role::kBlock),   Named("hr", Role::kBlock),         Named("li", Role::kBlock),
        Named("main", Role::kBlock),     Named("nav", Role::kBlock),        Named("noscript", Role::kDropped),
        Named("ol", Role::kBlock),       Named("option", Role::kBlock),     Named("p", Role::kBlock),
        Named("pre", Role::kPre),        Named("script", Role::kDropped),   Named("section", Role::kBlock),
        Named("style", Role::kDropped),  Named("summary", Role::kBlock),    Named("table", Role::kBlock),
        Named("td", Role::kCell),        Named("template", Role::kDropped), Named("th", Role::kCell),
        Named("title", Role::kBlock),    Named("tr", Role::kBlock),         Named("ul", Role::kBlock),
    };
    std::sort(t.begin(), t.end(), [](const NamedRole& a, const NamedRole& b) { return a.key < b.key; });
    return t;
  }();
  return table;
}

// The role of an element, its name in any case.
Role RoleOf(const xmlChar* name) {
  const NameKey key = KeyOf(reinterpret_cast<const char*>(name));
  if (key == 0) return Role::kInline;
  const auto& roles = Roles();
  const auto it = std::lower_bound(roles.begin(), roles.end(), key,
                                   [](const NamedRole& r, NameKey k) { return r.key < k; });
  return it != roles.end() && it->key == key ? it->role : Role::kInline;
}

bool IsHtmlSpace(char c) { return c == ' ' || c == '\t' || c == '\n' || c == '\r' || c == '\f'; }

struct HtmlState {
  TextSink* sink = nullptr;
  htmlParserCtxtPtr parser = nullptr;
  bool stopped = false;
  int dropped = 0;
  int pre = 0;
  bool space_pending = false;
  bool at_line_start = true;
  std::string run;

  void Stop() {
    stopped = true;
    if (parser) xmlStopParser(parser);
  }
  void LineBreak() {
    space_pending = false;
    at_line_start = true;
    if (!sink->NewLine()) Stop();
  }
  void Text(const char* text, size_t len) {
    if (dropped > 0 || sink->stopped()) return;
    run.clear();
    if (pre > 0) {
      for (size_t i = 0; i < len; ++i) {
        const char c = text[i];
        if (space_pending && !at_line_start) run.push_back(' ');
        space_pending = false;
        run.push_back(c);
        at_line_start = c == '\n';
      }
    } else {
      // Outside <pre> each run of white space is one blank: words are copied whole.
      size_t i = 0;
      while (i < len) {
        if (IsHtmlSpace(text[i])) {
          space_pending = true;
          ++i;
          continue;
        }
        size_t end = i + 1;
        while (end < len && !IsHtmlSpace(text[end])) ++end;
        if (space_pending && !at_line_start) run.push_back(' ');
        space_pending = false;
        at_line_start = false;
        run.append(text + i, end - i);
        i = end;
      }
    }
    if (!run.empty() && !sink->Append(run)) Stop();
  }
};

HtmlState* StateOf(void* context) { return static_cast<HtmlState*>(context); }

void OnStart(void* context, const xmlChar* name, const xmlChar**) {
  HtmlState* s = StateOf(context);
  const Role role = RoleOf(name);
  if (role == Role::kDropped) {
    ++s->dropped;
    return;
  }
  if (s->dropped > 0) return;
  switch (role) {
    case Role::kBreak:
      s->space_pending = false;
      s->at_line_start = true;
      if (!s->sink->Append("\n")) s->Stop();
      break;
    case Role::kCell:
      if (!s->at_line_start && !s->sink->Append("\t")) s->Stop();
      s->space_pending = false;
      break;
    case Role::kPre:
      ++s->pre;
      s->LineBreak();
      break;
    case Role::kBlock:
      s->LineBreak();
      break;
    case Role::kInline:
    case Role::kDropped:
      break;
  }
}

void OnEnd(void* context, const xmlChar* name) {
  HtmlState* s = StateOf(context);
  const Role role = RoleOf(name);
  if (role == Role::kDropped) {
    if (s->dropped > 0) --s->dropped;
    return;
  }
  if (s->dropped > 0) return;
  if (role == Role::kBlock || role == Role::kPre) {
    if (role == Role::kPre && s->pre > 0) --s->pre;
    s->LineBreak();
  }
}

void OnCharacters(void* context, const xmlChar* text, int len) {
  if (len > 0) StateOf(context)->Text(reinterpret_cast<const char*>(text), static_cast<size_t>(len));
}

bool DeclaresCharset(std::string_view sample) {
  std::string lower(sample.substr(0, 8192));
  std::transform(lower.begin(), lower.end(), lower.begin(), [](char c) { return c >= 'A' && c <= 'Z' ? c + 32 : c; });
  return lower.find("charset") != std::string::npos || lower.find("encoding=") != std::string::npos;
}

// Valid UTF-8 but for a character cut at the end of the sample.
bool LooksUtf8(std::string_view sample) {
  for (size_t cut = 0; cut < 4 && cut <= sample.size(); ++cut)
    if (IsValidUtf8(sample.substr(0, sample.size() - cut))) return true;
  return false;
}

// The encoding to impose, or "" to leave the decision to libxml2 (declared or marked).
std::string UndeclaredEncoding(std::string_view sample) {
  if (DeclaresCharset(sample) || LooksUtf8(sample)) return {};
  text::TextOpen open = text::OpenTextReader(text::MemorySource(std::string(sample)), "html");
  return open.kind == 1 ? open.encoding : std::string();
}

struct FileClose {
  void operator()(FILE* f) const { fclose(f); }
};

}  // namespace

bool IsHtmlExtension(std::string_view ext) { return base::IsOneOf(ext, base::kHtmlTypes); }

Outcome ReadHtml(const DocumentInput& input, std::string_view, ExtractContext& context) {
  InitSafeXml();
  std::unique_ptr<FILE, FileClose> file;
  if (!input.in_memory()) {
    file.reset(fopen(input.path.c_str(), "rbe"));
    if (!file) return Outcome::Fail(kEndUnreadable, std::string("cannot open: ") + strerror(errno));
  }
  // One block per helper thread, kept between documents: a fresh one per page costs its
  // zero-filling and page faults, which for a small page is more than the parse. The first
  // block read is the sample the charset is decided on, and then the parser's first chunk.
  thread_local std::string block;
  block.resize(kBlockBytes);
  size_t first_block = 0;
  std::string_view sample;
  if (input.in_memory()) {
    sample = std::string_view(*input.bytes).substr(0, text::kSampleBytes);
  } else {
    first_block = fread(block.data(), 1, std::min(kBlockBytes, text::kSampleBytes), file.get());
    sample = std::string_view(block.data(), first_block);
  }
  const std::string encoding = UndeclaredEncoding(sample);

  htmlSAXHandler sax;
  memset(&sax, 0, sizeof sax);
  sax.startElement = OnStart;
  sax.endElement = OnEnd;
  sax.characters = OnCharacters;
  HtmlState state;
  state.sink = context.sink;
  htmlParserCtxtPtr parser = htmlCreatePushParserCtxt(&sax, &state, nullptr, 0, nullptr, XML_CHAR_ENCODING_NONE);
  if (!parser) return Outcome::Fail(kEndUnreadable, "cannot start the HTML parser");
  state.parser = parser;
  htmlCtxtUseOptions(parser, kHtmlOptions);
  if (!encoding.empty()) {
    xmlCharEncodingHandlerPtr handler = xmlFindCharEncodingHandler(encoding.c_str());
    if (handler) xmlSwitchToEncoding(parser, handler);
  }

  size_t offset = 0;
  bool sample_fed = input.in_memory();
  while (!context.sink->stopped() && !state.stopped) {
    const char* data;
    size_t n;
    if (input.in_memory()) {
      n = std::min(kBlockBytes, input.bytes->size() - offset);
      data = input.bytes->data() + offset;
      offset += n;
    } else if (!sample_fed) {
      n = first_block;
      data = block.data();
      sample_fed = true;
    } else {
      n = fread(block.data(), 1, block.size(), file.get());
      data = block.data();
    }
    if (n == 0) break;
    htmlParseChunk(parser, data, static_cast<int>(n), 0);
  }
  if (!state.stopped) htmlParseChunk(parser, nullptr, 0, 1);
  htmlFreeParserCtxt(parser);
  return Outcome::Ok();
}

}  // namespace trovix::extract
