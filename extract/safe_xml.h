// SafeXmlReader: libxml2's streaming reader, set up so that a document can make it do nothing
// but parse: no DTD is loaded, no external entity is resolved (a global loader refuses them
// all, should any code path ask), entities are never substituted, nothing goes to the network,
// and no error is printed. Options are exactly XML_PARSE_NONET | XML_PARSE_NOERROR |
// XML_PARSE_NOWARNING; never NOENT, DTDLOAD, DTDATTR or HUGE, so libxml2's own bounds on depth,
// name and text sizes stay in force. On top of that a reader stops after kMaxXmlNodes nodes.
//
// An undefined or external entity reference in the text is reported as a node of type
// XML_READER_TYPE_ENTITY_REFERENCE and readers skip it: its replacement text is not the
// document's visible text we can vouch for.
//
// Input: a block of memory, or a pull function (a member streamed out of a zip package), so a
// part is never held whole in memory.
//
// Thread-safety: one reader per thread; the global set-up is done once, thread-safely.
#pragma once

#include <libxml/xmlreader.h>

#include <cstdint>
#include <functional>
#include <memory>
#include <string>
#include <string_view>

namespace trovix::extract {

inline constexpr uint64_t kMaxXmlNodes = 20'000'000;

class SafeXmlReader {
 public:
  // Fills up to `size` bytes; returns the count, 0 at the end, -1 on an error.
  using PullFn = std::function<int(char* buffer, int size)>;

  // The reader over `bytes` (kept by the caller while the reader lives); null when libxml2
  // cannot make one.
  static std::unique_ptr<SafeXmlReader> FromMemory(std::string_view bytes);
  static std::unique_ptr<SafeXmlReader> FromPull(PullFn pull);
  ~SafeXmlReader();
  SafeXmlReader(const SafeXmlReader&) = delete;
  SafeXmlReader& operator=(const SafeXmlReader&) = delete;

  // Moves to the next node. False at the end, on a parse error (failed()) or past the node
  // bound (over_limit()).
  bool Next();
  bool failed() const { return failed_; }
  bool over_limit() const { return over_limit_; }

  int type() const;                 // XML_READER_TYPE_*
  std::string_view local_name() const;
  std::string_view namespace_uri() const;
  std::string_view value() const;   // text of a text, CDATA or white-space node
  bool is_empty_element() const;
  int depth() const;
  // An attribute by local name (any namespace); "" when absent.
  std::string Attribute(const char* local_name) const;

  // True for the text nodes a reader takes as content.
  bool IsText() const;

 private:
  explicit SafeXmlReader(PullFn pull) : pull_(std::move(pull)) {}
  SafeXmlReader() = default;
  static int PullThunk(void* context, char* buffer, int size);

  xmlTextReaderPtr reader_ = nullptr;
  PullFn pull_;
  uint64_t nodes_ = 0;
  bool failed_ = false;
  bool over_limit_ = false;
};

// Once per process: libxml2's global error output off and an external-entity loader that
// refuses everything. Every SafeXmlReader calls it; the HTML reader too.
void InitSafeXml();

}  // namespace trovix::extract
