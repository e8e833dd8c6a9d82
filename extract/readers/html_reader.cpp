#include "extract/readers/html_reader.h"

#include <libxml/HTMLparser.h>
#include <libxml/parserInternals.h>
#include <strings.h>

#include <algorithm>
#include <cstring>
#include <memory>
#include <string>

#include "extract/archive/archive_names.h"
#include "extract/safe_xml.h"
#include "text/plain_text_reader.h"
#include "base/document_types.h"

namespace trovix::extract {
namespace {

constexpr int kHtmlOptions = HTML_PARSE_NONET | HTML_PARSE_NOERROR | HTML_PARSE_NOWARNING | HTML_PARSE_RECOVER;
constexpr size_t kBlockBytes = 64 * 1024;

const char* const kDropped[] = {"script", "style", "template", "noscript"};
const char* const kBlocks[] = {"p",     "div",    "h1",      "h2",      "h3",     "h4",     "h5",
                               "h6",    "li",     "tr",      "table",   "ul",     "ol",     "dl",
                               "dt",    "dd",     "blockquote", "pre",  "section", "article", "header",
                               "footer", "nav",   "aside",   "title",   "hr",     "form",   "address",
                               "figure", "figcaption", "main", "option", "body",  "caption", "summary"};

template <size_t N>
bool NameIn(const xmlChar* name, const char* const (&list)[N]) {
  const char* n = reinterpret_cast<const char*>(name);
  for (const char* e : list)
    if (strcasecmp(n, e) == 0) return true;
  return false;
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
    for (size_t i = 0; i < len; ++i) {
      char c = text[i];
      if (pre == 0 && IsHtmlSpace(c)) {
        space_pending = true;
        continue;
      }
      if (space_pending && !at_line_start) run.push_back(' ');
      space_pending = false;
      run.push_back(c);
      at_line_start = pre > 0 && c == '\n';
    }
    if (!run.empty() && !sink->Append(run)) Stop();
  }
};

HtmlState* StateOf(void* context) { return static_cast<HtmlState*>(context); }

void OnStart(void* context, const xmlChar* name, const xmlChar**) {
  HtmlState* s = StateOf(context);
  if (NameIn(name, kDropped)) {
    ++s->dropped;
    return;
  }
  if (s->dropped > 0) return;
  const char* n = reinterpret_cast<const char*>(name);
  if (strcasecmp(n, "br") == 0) {
    s->space_pending = false;
    s->at_line_start = true;
    if (!s->sink->Append("\n")) s->Stop();
  } else if (strcasecmp(n, "td") == 0 || strcasecmp(n, "th") == 0) {
    if (!s->at_line_start && !s->sink->Append("\t")) s->Stop();
    s->space_pending = false;
  } else if (NameIn(name, kBlocks)) {
    if (strcasecmp(n, "pre") == 0) ++s->pre;
    s->LineBreak();
  }
}

void OnEnd(void* context, const xmlChar* name) {
  HtmlState* s = StateOf(context);
  if (NameIn(name, kDropped)) {
    if (s->dropped > 0) --s->dropped;
    return;
  }
  if (s->dropped > 0) return;
  if (NameIn(name, kBlocks)) {
    if (strcasecmp(reinterpret_cast<const char*>(name), "pre") == 0 && s->pre > 0) --s->pre;
    s->LineBreak();
  }
}

void OnCharacters(void* context, const xmlChar* text, int len) {
  if (len > 0) StateOf(context)->Text(reinterpret_cast<const char*>(text), static_cast<size_t>(len));
}

// The document's first block, for the charset decision.
std::string Sample(const DocumentInput& input, FILE* file) {
  if (input.in_memory()) return input.bytes->substr(0, text::kSampleBytes);
  std::string sample(text::kSampleBytes, '\0');
  size_t n = fread(sample.data(), 1, sample.size(), file);
  sample.resize(n);
  rewind(file);
  return sample;
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
std::string UndeclaredEncoding(const std::string& sample) {
  if (DeclaresCharset(sample) || LooksUtf8(sample)) return {};
  text::TextOpen open = text::OpenTextReader(text::MemorySource(sample), "html");
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
  std::string encoding = UndeclaredEncoding(Sample(input, file.get()));

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
  std::string block(kBlockBytes, '\0');
  while (!context.sink->stopped() && !state.stopped) {
    const char* data;
    size_t n;
    if (input.in_memory()) {
      n = std::min(kBlockBytes, input.bytes->size() - offset);
      data = input.bytes->data() + offset;
      offset += n;
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
