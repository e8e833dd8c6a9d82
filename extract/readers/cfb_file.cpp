#include "extract/readers/cfb_file.h"

#include <gsf/gsf-doc-meta-data.h>
#include <gsf/gsf-docprop-vector.h>
#include <gsf/gsf-infile-msole.h>
#include <gsf/gsf-infile.h>
#include <gsf/gsf-input-memory.h>
#include <gsf/gsf-input-stdio.h>
#include <gsf/gsf-input.h>
#include <gsf/gsf-msole-utils.h>
#include <gsf/gsf-timestamp.h>

#include <mutex>
#include <string>

#include "base/utf.h"

namespace trovix::extract {
namespace {

// libgsf warns on stderr about every damaged header and chain; a damaged file is an answer
// here (unreadable), not news for the terminal.
void SilenceLibgsf() {
  static std::once_flag once;
  std::call_once(once, [] {
    for (const char* domain : {"libgsf", "libgsf:msole"})
      g_log_set_handler(domain, static_cast<GLogLevelFlags>(G_LOG_LEVEL_MASK | G_LOG_FLAG_FATAL | G_LOG_FLAG_RECURSION),
                        [](const gchar*, GLogLevelFlags, const gchar*, gpointer) {}, nullptr);
  });
}

}  // namespace

#if defined(TROVIX_SANITIZED)
// libgsf leaks the directory entries of a damaged file it refuses: a few hundred bytes a file,
// its own and not ours, which would fail every leak check of a sanitized build. The checker's
// fast stacks end inside glib (built without frame pointers), so glib's allocators are named
// beside libgsf; the fuzz target checks our own use of libgsf with whole stacks.
extern "C" const char* __lsan_default_suppressions() {
  return "leak:libgsf-1.so\nleak:g_malloc\nleak:g_utf16_to_utf8\n";
}
#endif

CfbStream::CfbStream(GsfInput* input) : input_(input), size_(static_cast<uint64_t>(gsf_input_size(input))) {}

CfbStream::~CfbStream() { g_object_unref(input_); }

bool CfbStream::ReadAt(uint64_t offset, size_t count, std::string* out) {
  out->clear();
  if (offset > size_ || count > size_ - offset) return false;
  if (count == 0) return true;
  if (gsf_input_seek(input_, static_cast<gsf_off_t>(offset), G_SEEK_SET)) return false;
  out->resize(count);
  if (!gsf_input_read(input_, count, reinterpret_cast<guint8*>(out->data()))) {
    out->clear();
    return false;
  }
  return true;
}

bool CfbStream::ReadUpTo(uint64_t offset, size_t count, std::string* out) {
  if (offset > size_) {
    out->clear();
    return false;
  }
  const uint64_t left = size_ - offset;
  return ReadAt(offset, static_cast<size_t>(count < left ? count : left), out);
}

CfbFile::~CfbFile() {
  if (root_) g_object_unref(root_);
  if (source_) g_object_unref(source_);
}

Outcome CfbFile::Open(const DocumentInput& input) {
  SilenceLibgsf();
  GError* error = nullptr;
  if (input.in_memory()) {
    // The caller keeps the block alive for the life of this file; libgsf only reads it.
    source_ = gsf_input_memory_new(reinterpret_cast<const guint8*>(input.bytes->data()),
                                   static_cast<gsf_off_t>(input.bytes->size()), FALSE);
  } else {
    source_ = gsf_input_stdio_new(input.path.c_str(), &error);
    if (error) g_error_free(error);
    error = nullptr;
  }
  if (!source_) return Outcome::Fail(kEndUnreadable, "cannot open");
  root_ = gsf_infile_msole_new(source_, &error);
  if (error) g_error_free(error);
  if (!root_) return Outcome::Fail(kEndUnreadable, "not a compound document");
  return Outcome::Ok();
}

std::unique_ptr<CfbStream> CfbFile::Stream(std::string_view name) const {
  if (!root_) return nullptr;
  const std::string wanted(name);
  GsfInput* child = gsf_infile_child_by_name(root_, wanted.c_str());
  if (!child) return nullptr;
  // A storage (a folder inside the file) is no stream.
  if (GSF_IS_INFILE(child) && gsf_infile_num_children(GSF_INFILE(child)) >= 0) {
    g_object_unref(child);
    return nullptr;
  }
  return std::make_unique<CfbStream>(child);
}

bool CfbFile::Has(std::string_view name) const {
  if (!root_) return false;
  const std::string wanted(name);
  GsfInput* child = gsf_infile_child_by_name(root_, wanted.c_str());
  if (!child) return false;
  g_object_unref(child);
  return true;
}

void CfbFile::ReadSummaries(const std::function<void(std::string_view, std::string_view)>& out) const {
  if (!root_) return;
  GsfDocMetaData* meta = gsf_doc_meta_data_new();
  for (const char* name : {"\005SummaryInformation", "\005DocumentSummaryInformation"}) {
    GsfInput* stream = gsf_infile_child_by_name(root_, name);
    if (!stream) continue;
    if (GError* error = gsf_doc_meta_data_read_from_msole(meta, stream)) g_error_free(error);
    g_object_unref(stream);
  }
  gsf_doc_meta_data_foreach(
      meta,
      [](gpointer key, gpointer value, gpointer data) {
        const auto& out = *static_cast<const std::function<void(std::string_view, std::string_view)>*>(data);
        const char* name = static_cast<const char*>(key);
        const GValue* v = gsf_doc_prop_get_val(static_cast<GsfDocProp*>(value));
        if (!name || !v) return;
        if (G_VALUE_HOLDS_STRING(v)) {
          if (const char* s = g_value_get_string(v)) out(name, s);
        } else if (G_VALUE_HOLDS_INT(v)) {
          out(name, std::to_string(g_value_get_int(v)));
        } else if (G_VALUE_HOLDS_UINT(v)) {
          out(name, std::to_string(g_value_get_uint(v)));
        } else if (G_VALUE_HOLDS(v, GSF_TIMESTAMP_TYPE)) {
          if (auto* t = static_cast<GsfTimestamp*>(g_value_get_boxed(v))) {
            char* s = gsf_timestamp_as_string(t);
            if (s) out(name, s);
            g_free(s);
          }
        }
      },
      const_cast<void*>(static_cast<const void*>(&out)));
  g_object_unref(meta);
}

uint16_t Le16(std::string_view bytes, size_t at) {
  if (at > bytes.size() || bytes.size() - at < 2) return 0;
  return static_cast<uint16_t>(static_cast<unsigned char>(bytes[at]) |
                               static_cast<unsigned char>(bytes[at + 1]) << 8);
}

uint32_t Le32(std::string_view bytes, size_t at) {
  if (at > bytes.size() || bytes.size() - at < 4) return 0;
  return static_cast<uint32_t>(Le16(bytes, at)) | static_cast<uint32_t>(Le16(bytes, at + 2)) << 16;
}

char32_t Cp1252ToUnicode(unsigned char byte) {
  static constexpr char16_t kHigh[32] = {
      0x20AC, 0x0081, 0x201A, 0x0192, 0x201E, 0x2026, 0x2020, 0x2021, 0x02C6, 0x2030, 0x0160,
      0x2039, 0x0152, 0x008D, 0x017D, 0x008F, 0x0090, 0x2018, 0x2019, 0x201C, 0x201D, 0x2022,
      0x2013, 0x2014, 0x02DC, 0x2122, 0x0161, 0x203A, 0x0153, 0x009D, 0x017E, 0x0178};
  return byte >= 0x80 && byte <= 0x9F ? kHigh[byte - 0x80] : byte;
}

void AppendUtf16LeAsUtf8(std::string& out, std::string_view bytes) {
  out += base::Utf16ToUtf8(base::ReadUtf16LE(reinterpret_cast<const uint8_t*>(bytes.data()), bytes.size() / 2));
}

}  // namespace trovix::extract
