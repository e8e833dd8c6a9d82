#include "extract/document_router.h"

#include "extract/readers/excel_binary_reader.h"
#include "extract/readers/compressed_reader.h"
#include "extract/readers/epub_reader.h"
#include "extract/readers/html_reader.h"
#include "extract/readers/mail_reader.h"
#include "extract/readers/odf_reader.h"
#include "extract/readers/ooxml_reader.h"
#include "extract/readers/pdf_reader.h"
#include "extract/readers/plain_reader.h"
#include "extract/readers/powerpoint_binary_reader.h"
#include "extract/readers/word_binary_reader.h"
#include "extract/readers/wordprocessor_reader.h"

namespace trovix::extract {

Outcome ReadDocument(const DocumentInput& input, std::string_view ext, ExtractContext& context) {
  context.sink->SetInputBytes(input.Size());
  if (ext == "pdf") return ReadPdf(input, ext, context);
  if (IsOoxmlExtension(ext)) return ReadOoxml(input, ext, context);
  if (IsOdfExtension(ext)) return ReadOdf(input, ext, context);
  if (IsHtmlExtension(ext)) return ReadHtml(input, ext, context);
  // Old Office documents are compound files. Word also saved RTF and plain text under .doc,
  // and a .dot is as often a graph description: what is no compound file is read for what it
  // holds rather than called damaged.
  if ((IsWordBinaryExtension(ext) || IsExcelBinaryExtension(ext) || IsPowerPointBinaryExtension(ext)) &&
      input.Head(8) != std::string_view("\xD0\xCF\x11\xE0\xA1\xB1\x1A\xE1", 8)) {
    return ReadPlainOrRtf(input, input.Head(5) == "{\\rtf" ? "rtf" : ext, context);
  }
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
