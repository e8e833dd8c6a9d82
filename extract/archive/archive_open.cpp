#include "extract/archive/archive_open.h"

namespace trovix::extract {
namespace {

constexpr size_t kFileBlockBytes = 64 * 1024;

void SupportFormats(struct archive* a, bool zip_only) {
  archive_read_support_format_zip(a);
  if (zip_only) return;
  // Named one by one rather than "all": "all" includes mtree, whose entries name files of the
  // local file system that libarchive then opens and reads as member data. A crafted file
  // would make us hand out the text of files it names.
  archive_read_support_format_tar(a);
  archive_read_support_format_7zip(a);
  archive_read_support_format_cpio(a);
  archive_read_support_format_iso9660(a);
  archive_read_support_format_ar(a);
  archive_read_support_format_cab(a);
  archive_read_support_format_lha(a);
  archive_read_support_format_rar(a);
  archive_read_support_format_rar5(a);
  archive_read_support_format_xar(a);
}

void SupportFilters(struct archive* a) {
  // Only filters that libarchive runs in-process (all these libraries are linked into it here);
  // the others would start an external program, which the sandbox forbids anyway.
  archive_read_support_filter_gzip(a);
  archive_read_support_filter_bzip2(a);
  archive_read_support_filter_xz(a);
  archive_read_support_filter_lzma(a);
  archive_read_support_filter_zstd(a);
  archive_read_support_filter_lz4(a);
  archive_read_support_filter_compress(a);
}

}  // namespace

ArchivePtr OpenArchive(const DocumentInput& input, bool zip_only) {
  ArchivePtr a(archive_read_new());
  if (!a) return nullptr;
  SupportFormats(a.get(), zip_only);
  if (!zip_only) SupportFilters(a.get());
  int r = input.in_memory()
              ? archive_read_open_memory(a.get(), input.bytes->data(), input.bytes->size())
              : archive_read_open_filename(a.get(), input.path.c_str(), kFileBlockBytes);
  if (r != ARCHIVE_OK) return nullptr;
  return a;
}

ScopedUtf8Locale::ScopedUtf8Locale() {
  utf8_ = newlocale(LC_CTYPE_MASK, "C.UTF-8", static_cast<locale_t>(0));
  if (utf8_ != static_cast<locale_t>(0)) previous_ = uselocale(utf8_);
}

ScopedUtf8Locale::~ScopedUtf8Locale() {
  if (utf8_ == static_cast<locale_t>(0)) return;
  uselocale(previous_);
  freelocale(utf8_);
}

}  // namespace trovix::extract
