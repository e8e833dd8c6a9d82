#include "extract/readers/compressed_reader.h"

#include <archive.h>
#include <archive_entry.h>

#include <memory>

#include "base/file_name.h"
#include "extract/document_router.h"
#include "base/document_types.h"

namespace trovix::extract {
namespace {

constexpr size_t kFileBlockBytes = 64 * 1024;
constexpr size_t kReadBlockBytes = 64 * 1024;

struct ArchiveFree {
  void operator()(struct archive* a) const { archive_read_free(a); }
};

constexpr const char* kTarText = "a compressed tar archive: it is read as a folder";

// How deep compressed files inside compressed files go on this thread's request.
thread_local uint32_t nesting = 0;

struct NestingGuard {
  NestingGuard() { ++nesting; }
  ~NestingGuard() { --nesting; }
};

std::string Grouped(uint64_t n) {
  std::string digits = std::to_string(n);
  for (int i = static_cast<int>(digits.size()) - 3; i > 0; i -= 3)
    digits.insert(static_cast<size_t>(i), ",");
  return digits;
}

// Decompresses into *bytes, at most `bound` bytes; *cut tells whether more was there, *layers
// how many compressions came off (libarchive takes off every layer it recognises at once).
Outcome Decompress(const DocumentInput& input, uint64_t bound, ExpandBudget& budget,
                   std::string* bytes, bool* cut, int* layers) {
  std::unique_ptr<struct archive, ArchiveFree> a(archive_read_new());
  if (!a) return Outcome::Fail(kEndUnreadable, "cannot read compressed file");
  // Only the in-process filters of the compressions we name; the raw format hands out the
  // decompressed stream as one entry.
  archive_read_support_filter_gzip(a.get());
  archive_read_support_filter_bzip2(a.get());
  archive_read_support_filter_xz(a.get());
  archive_read_support_filter_zstd(a.get());
  archive_read_support_format_raw(a.get());
  // The raw format wants one byte at least: an empty file, compressed, is the empty format's.
  // Damage shows before that, when the filters open.
  archive_read_support_format_empty(a.get());
  const int r = input.in_memory()
                    ? archive_read_open_memory(a.get(), input.bytes->data(), input.bytes->size())
                    : archive_read_open_filename(a.get(), input.path.c_str(), kFileBlockBytes);
  struct archive_entry* entry = nullptr;
  const int header = r == ARCHIVE_OK ? archive_read_next_header(a.get(), &entry) : r;
  if (header != ARCHIVE_OK && header != ARCHIVE_EOF)
    return Outcome::Fail(kEndUnreadable, "not a compressed file that can be read");
  // Without a filter the raw format would hand out the file itself.
  *layers = archive_filter_count(a.get()) - 1;
  if (*layers < 1) return Outcome::Fail(kEndUnreadable, "not a compressed file");
  if (header == ARCHIVE_EOF) return Outcome::Ok();
  char block[kReadBlockBytes];
  for (;;) {
    const la_ssize_t n = archive_read_data(a.get(), block, sizeof block);
    if (n == 0) return Outcome::Ok();
    if (n < 0) {
      // What came out before the damage is still the file's beginning.
      if (!bytes->empty()) return Outcome::Ok();
      return Outcome::Fail(kEndUnreadable, "damaged compressed file");
    }
    size_t take = static_cast<size_t>(n);
    if (bytes->size() + take > bound) {
      take = static_cast<size_t>(bound - bytes->size());
      *cut = true;
    }
    if (!budget.Take(take)) return Outcome::Fail(kEndLimit, "too much to decompress");
    bytes->append(block, take);
    if (*cut) return Outcome::Ok();
  }
}

}  // namespace

bool IsCompressedExtension(std::string_view extension) {
  return base::IsOneOf(extension, base::kCompressedTypes);
}

std::string InnerName(std::string_view name) {
  const size_t dot = name.rfind('.');
  const size_t slash = name.rfind('/');
  if (dot == std::string_view::npos || (slash != std::string_view::npos && dot < slash))
    return std::string(name);
  if (!IsCompressedExtension(LowerExtension(name))) return std::string(name);
  return std::string(name.substr(0, dot));
}

Outcome ReadCompressed(const DocumentInput& input, std::string_view, ExtractContext& context) {
  if (ExtensionOf(InnerName(input.name)) == "tar") return Outcome::Fail(kEndNoText, kTarText);
  const uint64_t bound = context.limits.max_member_bytes;
  if (bound == 0) return Outcome::Fail(kEndTooLarge, "reading compressed files is off");
  if (nesting >= context.limits.max_depth)
    return Outcome::Fail(kEndLimit, "compressed files nested too deep");
  NestingGuard guard;

  std::string bytes;
  bool cut = false;
  int layers = 0;
  Outcome o = Decompress(input, bound, *context.budget, &bytes, &cut, &layers);
  if (!o.ok()) return o;
  // "x.txt.gz.gz" in two layers is x.txt; a layer without its extension costs no name.
  std::string inner = InnerName(input.name);
  for (int i = 1; i < layers && IsCompressedExtension(ExtensionOf(inner)); ++i)
    inner = InnerName(inner);
  const std::string inner_ext = ExtensionOf(inner);
  if (inner_ext == "tar") return Outcome::Fail(kEndNoText, kTarText);
  const std::string limit_text = "holds more than the " + Grouped(bound) + "-byte extraction limit";
  // A cut document would read as damaged, or worse as a shorter document: say why instead.
  if (cut && (base::HasDocumentTextReader(inner_ext) || IsCompressedExtension(inner_ext)))
    return Outcome::Fail(kEndTooLarge, "compressed file " + limit_text);
  o = ReadDocument(DocumentInput::Memory(&bytes, inner), inner_ext, context);
  // The compressed file's type has a reader; what it holds may not. "No reader" would make
  // the search give up on every compressed file, so this one is only without text.
  if (o.code == kEndNoReader)
    return Outcome::Fail(kEndNoText, "holds a file that is not read: " + o.message);
  if (!o.ok()) return o;
  if (cut)
    return Outcome::Fail(kEndLimit,
                         "compressed file " + limit_text + "; only its beginning was read");
  return o;
}

}  // namespace trovix::extract
