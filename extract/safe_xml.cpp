#include "extract/safe_xml.h"

#include <libxml/parser.h>
#include <libxml/xmlerror.h>

#include <mutex>

namespace trovix::extract {
namespace {

constexpr int kXmlOptions = XML_PARSE_NONET | XML_PARSE_NOERROR | XML_PARSE_NOWARNING;

void IgnoreGenericError(void*, const char*, ...) {}
void IgnoreStructuredError(void*, xmlErrorPtr) {}
void IgnoreReaderError(void*, const char*, xmlParserSeverities, xmlTextReaderLocatorPtr) {}

xmlParserInputPtr RefuseEntity(const char*, const char*, xmlParserCtxtPtr) { return nullptr; }

std::string_view View(const xmlChar* s) {
  return s ? std::string_view(reinterpret_cast<const char*>(s)) : std::string_view();
}

}  // namespace

void InitSafeXml() {
  static std::once_flag once;
  std::call_once(once, [] {
    xmlInitParser();
    xmlSetGenericErrorFunc(nullptr, IgnoreGenericError);
    xmlSetStructuredErrorFunc(nullptr, IgnoreStructuredError);
    xmlSetExternalEntityLoader(RefuseEntity);
  });
}

std::unique_ptr<SafeXmlReader> SafeXmlReader::FromMemory(std::string_view bytes) {
  InitSafeXml();
  std::unique_ptr<SafeXmlReader> r(new SafeXmlReader());
  r->reader_ = xmlReaderForMemory(bytes.data(), static_cast<int>(bytes.size()), nullptr, nullptr, kXmlOptions);
  if (!r->reader_) return nullptr;
  xmlTextReaderSetErrorHandler(r->reader_, IgnoreReaderError, nullptr);
  return r;
}

std::unique_ptr<SafeXmlReader> SafeXmlReader::FromPull(PullFn pull) {
  InitSafeXml();
  std::unique_ptr<SafeXmlReader> r(new SafeXmlReader(std::move(pull)));
  r->reader_ = xmlReaderForIO(PullThunk, nullptr, r.get(), nullptr, nullptr, kXmlOptions);
  if (!r->reader_) return nullptr;
  xmlTextReaderSetErrorHandler(r->reader_, IgnoreReaderError, nullptr);
  return r;
}

int SafeXmlReader::PullThunk(void* context, char* buffer, int size) {
  auto* self = static_cast<SafeXmlReader*>(context);
  return self->pull_ ? self->pull_(buffer, size) : -1;
}

SafeXmlReader::~SafeXmlReader() {
  if (reader_) xmlFreeTextReader(reader_);
}

bool SafeXmlReader::Next() {
  if (failed_ || over_limit_) return false;
  if (++nodes_ > kMaxXmlNodes) {
    over_limit_ = true;
    return false;
  }
  int r = xmlTextReaderRead(reader_);
  if (r < 0) failed_ = true;
  return r == 1;
}

int SafeXmlReader::type() const { return xmlTextReaderNodeType(reader_); }
std::string_view SafeXmlReader::local_name() const { return View(xmlTextReaderConstLocalName(reader_)); }
std::string_view SafeXmlReader::namespace_uri() const { return View(xmlTextReaderConstNamespaceUri(reader_)); }
std::string_view SafeXmlReader::value() const { return View(xmlTextReaderConstValue(reader_)); }
bool SafeXmlReader::is_empty_element() const { return xmlTextReaderIsEmptyElement(reader_) == 1; }
int SafeXmlReader::depth() const { return xmlTextReaderDepth(reader_); }

std::string SafeXmlReader::Attribute(const char* local_name) const {
  std::string out;
  if (xmlTextReaderMoveToFirstAttribute(reader_) != 1) return out;
  do {
    if (View(xmlTextReaderConstLocalName(reader_)) == local_name) {
      out = std::string(View(xmlTextReaderConstValue(reader_)));
      break;
    }
  } while (xmlTextReaderMoveToNextAttribute(reader_) == 1);
  xmlTextReaderMoveToElement(reader_);
  return out;
}

bool SafeXmlReader::IsText() const {
  int t = type();
  return t == XML_READER_TYPE_TEXT || t == XML_READER_TYPE_CDATA || t == XML_READER_TYPE_SIGNIFICANT_WHITESPACE;
}

}  // namespace trovix::extract
