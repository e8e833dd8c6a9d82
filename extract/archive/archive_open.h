// Opening an archive for reading with libarchive, the same way everywhere in the helper: the
// formats and filters we read, from a file or from a block of memory, and names handed out as
// the archive stores them (no character-set option is given, so libarchive converts nothing
// we can avoid; archive_names.h decodes them).
//
// Ownership: ArchivePtr frees the reader. The block of a memory input must outlive it.
// Thread-safety: one reader per thread; ScopedUtf8Locale changes only the calling thread.
#pragma once

#include <archive.h>
#include <locale.h>

#include <memory>

#include "extract/document_input.h"

namespace trovix::extract {

struct ArchiveFree {
  void operator()(struct archive* a) const { archive_read_free(a); }
};
using ArchivePtr = std::unique_ptr<struct archive, ArchiveFree>;

// A reader opened on `input`, or null when the data is no archive we read (or cannot be
// opened). `zip_only` reads only zip (OOXML and ODF packages), without filters, which spares
// trying every other format on a document.
ArchivePtr OpenArchive(const DocumentInput& input, bool zip_only = false);

// Formats that store names in UTF-16 (7z, Joliet, rar5 ...) are converted by libarchive to
// the locale's character set. In the C locale that fails for every non-ASCII name, so while
// an archive is read the thread uses C.UTF-8 for LC_CTYPE.
class ScopedUtf8Locale {
 public:
  ScopedUtf8Locale();
  ~ScopedUtf8Locale();
  ScopedUtf8Locale(const ScopedUtf8Locale&) = delete;
  ScopedUtf8Locale& operator=(const ScopedUtf8Locale&) = delete;

 private:
  locale_t utf8_ = static_cast<locale_t>(0);
  locale_t previous_ = static_cast<locale_t>(0);
};

}  // namespace trovix::extract
