// ZipPackage: the parts of an OOXML or ODF document (a zip of XML files), each streamed out of
// the zip straight into a SafeXmlReader, so that no part is held whole in memory and every
// byte decompressed is taken from the request's ExpandBudget (a package that is a zip bomb
// stops with kEndLimit).
//
// Parts are found by name; the package reopens the zip for each part it reads, which lets a
// reader take parts in document order whatever their order in the zip.
//
// Ownership: the package keeps a copy of the input (and so a pointer to the caller's block for
// a member: the block must outlive the package) and a pointer to the budget.
// Thread-safety: none; one request, one thread.
#pragma once

#include <functional>
#include <string>
#include <vector>

#include "extract/document_input.h"
#include "extract/outcome.h"
#include "extract/safe_xml.h"
#include "extract/text_sink.h"

namespace trovix::extract {

class ZipPackage {
 public:
  // Reads the part names (at most `max_parts`). Fails with kEndUnreadable when `input` is no
  // zip; with kEndEncrypted when it is an OLE container (Office keeps encrypted documents in
  // one).
  Outcome Open(const DocumentInput& input, ExpandBudget* budget, uint32_t max_parts);

  const std::vector<std::string>& part_names() const { return names_; }
  bool Has(const std::string& name) const;

  // Streams part `name` through a reader handed to `visit`; a missing part is kEndUnreadable.
  // The visitor's outcome is returned, unless the budget ran out (kEndLimit), the part broke
  // off or is not well-formed XML (kEndUnreadable), or the node bound was hit (kEndLimit).
  Outcome ReadXmlPart(const std::string& name, const std::function<Outcome(SafeXmlReader&)>& visit);

  // The part's raw bytes, at most `max_bytes` (for small parts such as a manifest).
  Outcome ReadSmallPart(const std::string& name, size_t max_bytes, std::string* out);

 private:
  DocumentInput input_;
  ExpandBudget* budget_ = nullptr;
  std::vector<std::string> names_;
};

}  // namespace trovix::extract
