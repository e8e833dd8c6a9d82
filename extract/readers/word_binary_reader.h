// The text of Word 97-2003 documents (.doc, .dot): the characters of the piece table.
//
// The File Information Block at the start of the WordDocument stream says which table stream
// holds the piece table (0Table or 1Table) and how long each part of the document is. Every
// part (the main text, footnotes, headers, comments, endnotes, text boxes) lies in the one
// character sequence the pieces describe, one after the other, so the pieces are read in order
// up to the sum of the parts. A piece holds 8-bit characters (Windows-1252) or UTF-16.
//
// What is visible text: field instructions (between the field begin 0x13 and its separator
// 0x14) are left out and the field's result kept; a paragraph end (0x0D), a line break (0x0B)
// and a page break (0x0C) give a line break; a cell end (0x07) a tab, and the row end mark
// that follows the last cell of a row a line break (an empty cell after a cell reads the same
// way, which costs no words); other control characters (pictures, note references) are dropped.
//
// An encrypted or obfuscated document answers kEndEncrypted ("encrypted"); Word 95 and older
// documents, which have another layout, answer kEndUnreadable.
#pragma once

#include <string_view>

#include "extract/document_input.h"
#include "extract/extract_context.h"
#include "extract/outcome.h"

namespace trovix::extract {

bool IsWordBinaryExtension(std::string_view extension);
Outcome ReadWordBinary(const DocumentInput& input, std::string_view extension, ExtractContext& context);

}  // namespace trovix::extract
