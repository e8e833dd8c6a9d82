// Reads arbitrary bytes as Word, Excel and PowerPoint 97-2003 documents. The first byte picks
// the road: 0 hands the rest to every reader as a compound file (libgsf's parsing); 1, 2 and 3
// wrap the rest into a well-formed compound file as the WordDocument and table streams, the
// Workbook stream or the PowerPoint Document stream, so the record readers themselves meet
// the damage. Nothing may crash, hang or leak; every outcome is acceptable.
#include <gsf/gsf-outfile-msole.h>
#include <gsf/gsf-outfile.h>
#include <gsf/gsf-output-memory.h>

#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "extract/document_input.h"
#include "extract/properties/document_properties.h"
#include "extract/readers/excel_binary_reader.h"
#include "extract/extract_context.h"
#include "extract/readers/powerpoint_binary_reader.h"
#include "extract/text_sink.h"
#include "extract/readers/word_binary_reader.h"

namespace {

using namespace trovix::extract;

std::string Compound(const std::vector<std::pair<const char*, std::string_view>>& streams) {
  GsfOutput* memory = gsf_output_memory_new();
  GsfOutfile* file = gsf_outfile_msole_new(memory);
  for (const auto& [name, bytes] : streams) {
    GsfOutput* child = gsf_outfile_new_child(file, name, FALSE);
    gsf_output_write(child, bytes.size(), reinterpret_cast<const guint8*>(bytes.data()));
    gsf_output_close(child);
    g_object_unref(child);
  }
  gsf_output_close(GSF_OUTPUT(file));
  g_object_unref(file);
  const guint8* data = gsf_output_memory_get_bytes(GSF_OUTPUT_MEMORY(memory));
  std::string out(reinterpret_cast<const char*>(data), static_cast<size_t>(gsf_output_size(memory)));
  g_object_unref(memory);
  return out;
}

void ReadAs(const std::string& bytes, std::string_view ext) {
  ExtractLimits limits;
  limits.max_text_bytes = 1 << 20;
  ExpandBudget budget(16u << 20);
  TextSink sink(limits, [](std::string_view) { return true; }, nullptr);
  sink.SetInputBytes(static_cast<int64_t>(bytes.size()));
  ExtractContext context{&sink, &budget, limits};
  DocumentInput input = DocumentInput::Memory(&bytes, std::string("fuzz.") + std::string(ext));
  if (IsWordBinaryExtension(ext)) ReadWordBinary(input, ext, context);
  else if (IsExcelBinaryExtension(ext)) ReadExcelBinary(input, ext, context);
  else ReadPowerPointBinary(input, ext, context);
  sink.Finish();
}

}  // namespace

// libgsf leaks the directory entries of a damaged compound file it refuses (a few hundred
// bytes a file, ended with the helper); those are its own, not ours. The suppression needs
// whole stacks: glib is built without frame pointers, so the fast unwinder stops inside it.
extern "C" const char* __asan_default_options() { return "fast_unwind_on_malloc=0"; }
extern "C" const char* __lsan_default_suppressions() { return "leak:libgsf-1.so\n"; }

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  if (size < 1) return 0;
  const std::string_view rest(reinterpret_cast<const char*>(data) + 1, size - 1);
  switch (data[0] % 4) {
    case 0: {
      const std::string bytes(rest);
      for (std::string_view ext : {"doc", "xls", "ppt"}) ReadAs(bytes, ext);
      ExtractLimits limits;
      ExpandBudget budget(16u << 20);
      TextSink sink(limits, [](std::string_view) { return true; }, nullptr);
      ExtractContext context{&sink, &budget, limits};
      ReadProperties(DocumentInput::Memory(&bytes, "fuzz.doc"), "doc", context,
                     [](const ExtractedProperty&) { return true; });
      break;
    }
    case 1: {
      // The first two bytes split the rest into the WordDocument and table streams.
      if (rest.size() < 2) return 0;
      const size_t split = std::min<size_t>(rest.size() - 2, static_cast<uint8_t>(rest[0]) | static_cast<uint8_t>(rest[1]) << 8);
      const std::string_view word = rest.substr(2, split), table = rest.substr(2 + split);
      ReadAs(Compound({{"WordDocument", word}, {"0Table", table}, {"1Table", table}}), "doc");
      break;
    }
    case 2:
      ReadAs(Compound({{"Workbook", rest}}), "xls");
      break;
    default:
      ReadAs(Compound({{"PowerPoint Document", rest}}), "ppt");
      break;
  }
  return 0;
}
