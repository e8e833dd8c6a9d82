// Reads arbitrary bytes as an office document: as a zip package given to every OOXML and ODF
// reader, and as raw XML through the safe XML reader, under small limits so that a run stays
// fast. Nothing may crash, hang or leak; every outcome is acceptable.
#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>

#include "extract/document_input.h"
#include "extract/extract_context.h"
#include "extract/readers/odf_reader.h"
#include "extract/readers/ooxml_reader.h"
#include "extract/safe_xml.h"
#include "extract/text_sink.h"

namespace {

using namespace trovix::extract;

void ReadAs(const std::string& bytes, std::string_view ext) {
  ExtractLimits limits;
  limits.max_text_bytes = 1 << 20;
  limits.max_members = 1000;
  ExpandBudget budget(16u << 20);
  TextSink sink(limits, [](std::string_view) { return true; }, nullptr);
  sink.SetInputBytes(static_cast<int64_t>(bytes.size()));
  ExtractContext context{&sink, &budget, limits};
  DocumentInput input = DocumentInput::Memory(&bytes, std::string("fuzz.") + std::string(ext));
  if (IsOdfExtension(ext))
    ReadOdf(input, ext, context);
  else
    ReadOoxml(input, ext, context);
  sink.Finish();
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  std::string bytes(reinterpret_cast<const char*>(data), size);
  for (std::string_view ext : {"docx", "xlsx", "pptx", "odt"}) ReadAs(bytes, ext);
  if (auto reader = SafeXmlReader::FromMemory(bytes)) {
    size_t text = 0;
    while (reader->Next()) {
      if (reader->IsText()) text += reader->value().size();
      if (reader->type() == XML_READER_TYPE_ELEMENT) reader->Attribute("c");
    }
    (void)text;
  }
  return 0;
}
