#include "engine/extract/document_router.h"

#include "engine/extract/excel_binary_reader.h"
#include "engine/extract/compressed_reader.h"
#include "engine/extract/epub_reader.h"
#include "engine/extract/html_reader.h"
#include "engine/extract/mail_reader.h"
#include "engine/extract/odf_reader.h"
#include "engine/extract/ooxml_reader.h"
#include "engine/extract/pdf_reader.h"
#include "engine/extract/plain_reader.h"
#include "engine/extract/powerpoint_binary_reader.h"
#include "engine/extract/word_binary_reader.h"
#include "engine/extract/wordprocessor_reader.h"

namespace trovix::extract {

Outcome ReadDocument(const DocumentInput& input, std::string_view ext, ExtractContext& context) {
  context.sink->SetInputBytes(input.Size());
  if (ext == "pdf") return ReadPdf(input, ext, context);
  if (IsOoxmlExtension(ext)) return ReadOoxml(input, ext, context);
  if (IsOdfExtension(ext)) return ReadOdf(input, ext, context);
  if (IsHtmlExtension(ext)) return ReadHtml(input, ext, context);
  if (IsWordBinaryExtension(ext)) return ReadWordBinary(input, ext, context);
  if (IsExcelBinaryExtension(ext)) return ReadExcelBinary(input, ext, context);
  if (IsPowerPointBinaryExtension(ext)) return ReadPowerPointBinary(input, ext, context);
  if (ext == "epub") return ReadEpub(input, ext, context);
  if (IsCompressedExtension(ext)) return ReadCompressed(input, ext, context);
  if (IsMailInput(input, ext)) return ReadMail(input, ext, context);
  if (IsWordProcessorExtension(ext)) return ReadWordProcessor(input, ext, context);
  return ReadPlainOrRtf(input, ext, context);
}

}  // namespace trovix::extract
