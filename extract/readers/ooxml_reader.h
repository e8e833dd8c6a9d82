// The text of Office Open XML documents, read from their zip package (zip_package.h):
//   docx, docm, dotx: the main document part (found through the package relationships, else
//     word/document.xml), then headers, footers, footnotes, endnotes and comments. Text of
//     w:t; w:tab gives a tab, w:br / w:cr and paragraph ends a line break. Tracked deletions
//     (w:delText), field instructions and the fallback copy of text boxes are not visible text
//     and are left out.
//   xlsx, xlsm: the shared strings, then from each worksheet in number order the cells that do
//     not refer to them: inline strings, numbers, formula results (a tab between cells, a line
//     break per row).
//   pptx, pptm, ppsx: slides in number order, text of a:t runs, a line break per paragraph.
#pragma once

#include <string_view>

#include "extract/document_input.h"
#include "extract/extract_context.h"
#include "extract/outcome.h"

namespace trovix::extract {

bool IsOoxmlExtension(std::string_view extension);
Outcome ReadOoxml(const DocumentInput& input, std::string_view extension, ExtractContext& context);

}  // namespace trovix::extract
