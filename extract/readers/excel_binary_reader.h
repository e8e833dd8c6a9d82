// The text of Excel 97-2003 workbooks (.xls, .xlt): BIFF8 records of the Workbook stream.
//
// The workbook globals come first: the sheet names (BOUNDSHEET, with the stream offset of each
// sheet's records) and the shared strings (SST, continued over CONTINUE records, where a string
// may switch between 8-bit and 16-bit characters at each record boundary). Then each sheet:
// its name on a line of its own, then its cells in record order, a tab between the cells of a
// row and a line break between rows: shared and inline strings, numbers (shortest form that
// reads back the same), the cached results of formulas (numbers, strings, TRUE/FALSE, error
// codes) and Boolean and error cells. Number formats (dates, currencies) are not applied.
//
// A FILEPASS record (the workbook is encrypted) answers kEndEncrypted ("encrypted"); Excel 95
// and older workbooks answer kEndUnreadable.
#pragma once

#include <string_view>

#include "extract/document_input.h"
#include "extract/extract_context.h"
#include "extract/outcome.h"

namespace trovix::extract {

bool IsExcelBinaryExtension(std::string_view extension);
Outcome ReadExcelBinary(const DocumentInput& input, std::string_view extension, ExtractContext& context);

}  // namespace trovix::extract
