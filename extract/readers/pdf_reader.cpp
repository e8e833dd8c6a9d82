#include "extract/readers/pdf_reader.h"

#include <poppler/cpp/poppler-document.h>
#include <poppler/cpp/poppler-global.h>
#include <poppler/cpp/poppler-page.h>

#include <climits>
#include <cstdio>
#include <memory>
#include <mutex>

namespace trovix::extract {
namespace {

void IgnorePopplerMessage(const std::string&, void*) {}

void SilencePoppler() {
  static std::once_flag once;
  std::call_once(once, [] { poppler::set_debug_error_function(IgnorePopplerMessage, nullptr); });
}

// Files up to this size are read whole before poppler parses them: its file stream reads a few
// hundred bytes per system call (hundreds of calls for a small document), a block in memory
// costs none. Larger files are left to the stream, so that memory stays bounded.
constexpr int64_t kReadWholeBytes = 64 << 20;

// The file's bytes, or false when they could not all be read (the stream then tries).
bool ReadWhole(const std::string& path, int64_t size, poppler::byte_array* data) {
  std::unique_ptr<FILE, int (*)(FILE*)> file(fopen(path.c_str(), "rbe"), fclose);
  if (!file) return false;
  data->resize(static_cast<size_t>(size) + 1);  // one byte more shows the end
  const size_t n = fread(data->data(), 1, data->size(), file.get());
  if (n != static_cast<size_t>(size) || ferror(file.get())) return false;  // it changed: let the stream read it
  data->resize(n);
  return true;
}

}  // namespace

std::unique_ptr<poppler::document> LoadPdf(const DocumentInput& input) {
  SilencePoppler();
  if (!input.in_memory()) {
    const int64_t size = input.Size();
    poppler::byte_array data;
    // load_from_data takes the block over when it succeeds.
    if (size > 0 && size <= kReadWholeBytes && ReadWhole(input.path, size, &data))
      return std::unique_ptr<poppler::document>(poppler::document::load_from_data(&data));
    return std::unique_ptr<poppler::document>(poppler::document::load_from_file(input.path));
  }
  if (input.bytes->size() > static_cast<size_t>(INT_MAX)) return nullptr;
  return std::unique_ptr<poppler::document>(poppler::document::load_from_raw_data(
      input.bytes->data(), static_cast<int>(input.bytes->size())));
}

Outcome ReadPdf(const DocumentInput& input, std::string_view, ExtractContext& context) {
  std::unique_ptr<poppler::document> doc = LoadPdf(input);
  if (!doc) return Outcome::Fail(kEndUnreadable, "not a PDF that can be read");
  if (doc->is_locked()) return Outcome::Fail(kEndEncrypted, "encrypted");
  TextSink& sink = *context.sink;
  int pages = doc->pages();
  for (int i = 0; i < pages; ++i) {
    if (!sink.Poll()) break;
    std::unique_ptr<poppler::page> page(doc->create_page(i));
    if (!page) continue;
    poppler::byte_array utf8 = page->text().to_utf8();
    if (i > 0 && !sink.NewLine()) break;
    if (!utf8.empty() && !sink.Append(std::string_view(utf8.data(), utf8.size()))) break;
  }
  return Outcome::Ok();
}

}  // namespace trovix::extract
