// The text of PowerPoint 97-2003 presentations (.ppt, .pps, .pot): the text atoms of the
// "PowerPoint Document" stream, found by walking its records (containers recursively, each
// inside its parent's bounds and at most 32 deep).
//
// Text lives in two places: the outline list (SlideListWithText), where PowerPoint keeps the
// text of placeholders, and the slides' drawings (text boxes), where other writers put all of
// it. Both are read; a text met in one place and again in the other is given once. Master
// slides are skipped: their text is the template's ("Click to edit the title text format").
// Each text atom gives its paragraphs as lines; UTF-16 atoms and 8-bit (Latin-1) atoms.
//
// An encrypted presentation answers kEndEncrypted ("encrypted").
#pragma once

#include <string_view>

#include "extract/document_input.h"
#include "extract/extract_context.h"
#include "extract/outcome.h"

namespace trovix::extract {

bool IsPowerPointBinaryExtension(std::string_view extension);
Outcome ReadPowerPointBinary(const DocumentInput& input, std::string_view extension, ExtractContext& context);

}  // namespace trovix::extract
