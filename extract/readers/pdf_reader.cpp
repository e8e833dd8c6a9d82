#include "extract/readers/pdf_reader.h"

#include <poppler/cpp/poppler-document.h>
#include <poppler/cpp/poppler-global.h>
#include <poppler/cpp/poppler-page.h>

#include <climits>
#include <memory>
#include <mutex>

namespace trovix::extract {
namespace {

void IgnorePopplerMessage(const std::string&, void*) {}

void SilencePoppler() {
  static std::once_flag once;
  std::call_once(once, [] { poppler::set_debug_error_function(IgnorePopplerMessage, nullptr); });
}

}  // namespace

std::unique_ptr<poppler::document> LoadPdf(const DocumentInput& input) {
  SilencePoppler();
  if (!input.in_memory()) return std::unique_ptr<poppler::document>(poppler::document::load_from_file(input.path));
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
