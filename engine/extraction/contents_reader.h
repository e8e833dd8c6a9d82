// ContentsReader: where the search gets an item's document text (props::ContentsSource).
//
//   - Plain text is read here, in the search process, in large blocks, in its encoding
//     (text/plain_text_reader.h), and so is RTF (text/rtf_reader.h): both are
//     our own small readers, and plain text must run at disk speed.
//   - Every other document goes to the extraction helper (engine/extraction/extraction_service.h), and
//     only when the "use filters" search flag (binSearchFlags 0x8) is on and its type has a
//     reader (FindFilter). Types with a document reader (PDF, Office, OpenDocument, HTML) go
//     there at once, without being sniffed as plain text first.
//   - A text file without an extension that opens as a mailbox does (a "From " line with a
//     date, then a header) goes to the helper too: its mail reader decodes the bodies.
//   - Archive members are read through the helper as streams, only up to the extraction size
//     limit (nMaxStreamExtractSize; 0 switches it off).
//   - Extensions listed in szGrepExcludeTypes are never searched for contents.
//   - An HTML page whose bytes cannot hold what the caller needs (ReadFor) is passed over:
//     no helper reads it, and the caller decides on no text.
//
// Filter records: one per extension, cached for the life of the process, with a usable count.
// When the reader of a type turns out to be missing (the helper answers that it has none, or
// cannot be started), the count drops and the type is not tried again in this process, except
// for "pdf" and for paths of 260 bytes or more (where the failure may be the path's, not the
// type's). A document that is merely damaged costs only itself.
//
// Files that were not read (no reader, switched off, encrypted, damaged ...) are counted in
// the reader's UnreadTally, when it has one, for the end of the search to say.
//
// Thread-safety: Read may be called from several threads; the filter records are locked.
#pragma once

#include <array>
#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

#include "engine/extraction/extraction_service.h"
#include "engine/extraction/unread_tally.h"
#include "props/contents_source.h"
#include "props/plugins/plugin_columns.h"
#include "text/text_reader.h"

namespace trovix::engine {

inline constexpr uint32_t kSearchFlagUseFilters = 0x8;  // binSearchFlags
// binSearchFlags: read the file inside single compressed files (.gz, .bz2, .xz, .zst) through
// its own reader; off by default, as ripgrep's --search-zip. Compressed tars stay archives.
inline constexpr uint32_t kSearchFlagSearchZip = 0x10000;
inline constexpr uint32_t kDefaultMaxStreamExtractSize = 0x300000;

struct ContentsOptions {
  std::string grep_exclude_types;  // szGrepExcludeTypes: "log, tmp" / ".log;*.tmp" ...
  // nMaxStreamExtractSize as the settings hold it: under 10,000 means 0, no member reading.
  uint32_t max_stream_extract_size = kDefaultMaxStreamExtractSize;
  uint32_t bin_search_flags = kSearchFlagUseFilters;
  size_t block_bytes = 256 * 1024;  // plain text is handed on in pieces of this size
};

// The 16-byte identifier of our document extractor, the class a filter record names.
inline constexpr std::array<uint8_t, 16> kExtractorClassId = {0x5A, 0x71, 0x2C, 0x0E, 0x3B, 0x90, 0x4D, 0x11,
                                                              0x9E, 0x6A, 0x00, 0x1C, 0x42, 0x58, 0xD3, 0x07};

struct FilterRecord {
  std::string extension;  // lower case, without the period
  int usable = 0;         // 1 when a reader exists; drops when it turns out not to work
  std::array<uint8_t, 16> id{};
};

// The record for the extension of `path` (lower-cased), or none: for an excluded type, a type
// nothing reads, or one whose reader proved unusable in this process.
const FilterRecord* FindFilter(std::string_view path, const ContentsOptions& options);
// Whether `extension` (lower case) has a document reader in the helper at all.
bool HasDocumentReader(std::string_view extension);
// Forgets every record's history (tests).
void ResetFilterRecords();

class ContentsReader final : public props::ContentsSource {
 public:
  explicit ContentsReader(ContentsOptions options, ExtractionService* service = nullptr);

  props::ContentsResult Read(props::ShellItem& item, const props::TextPieceSink& on_text) override;
  // An HTML page whose bytes cannot hold any of the needs (engine/extraction/markup_precheck.h)
  // is passed over without a round trip to the helper.
  props::ContentsResult ReadFor(props::ShellItem& item, const props::ContentsNeeds& needs,
                                const props::TextPieceSink& on_text) override;

  // Documents the helper reads are read several at once: when the first of `items` that goes
  // to the helper is read, the small documents after it go in the same round trip (at most
  // kMaxReadAheadFiles, each at most kMaxReadAheadFileBytes on disk), and their text is kept
  // (at most kMaxKeptTextBytes for them all: one that would pass it is read again on its own)
  // for their own Read on this thread. Every cap, the deadline and the crash memory hold per file, as
  // for a file read alone; answers are the same as without the read-ahead.
  void ReadAhead(const std::vector<props::ShellItemPtr>& items, std::stop_token stop = {}) override;
  static constexpr size_t kMaxReadAheadFiles = 16;
  static constexpr uint64_t kMaxReadAheadFileBytes = 1u << 20;
  static constexpr size_t kMaxKeptTextBytes = 16u << 20;

  const ContentsOptions& options() const { return options_; }
  // Where the files this reader could not read are counted, each file once however many
  // rules read it; none by default (previews and excerpts count nothing). Not owned.
  void set_unread_tally(UnreadTally* tally) { tally_ = tally; }

 private:
  props::ContentsResult ReadItem(props::ShellItem& item, const props::ContentsNeeds* needs,
                                 const props::TextPieceSink& on_text);
  void CountUnread(props::ShellItem& item, const props::ContentsResult& result);
  props::ContentsResult ReadFile(props::ShellItem& item, const props::ContentsNeeds* needs,
                                 const props::TextPieceSink& on_text);
  props::ContentsResult ReadMember(props::ShellItem& item, const props::TextPieceSink& on_text);
  // Text without an extension: a mailbox goes to its reader, anything else is read as it is.
  props::ContentsResult ReadUnnamedText(props::ShellItem& item, text::TextReader& reader,
                                        const props::TextPieceSink& on_text);
  // The text of a content plugin's full-text field, at most kPluginTextBytes (as much as the
  // document reader gives a search).
  static constexpr uint64_t kPluginTextBytes = 10'000'000;
  props::ContentsResult ReadThroughPlugin(props::PluginColumnProvider& plugin, props::ShellItem& item,
                                          const props::TextPieceSink& on_text);
  props::ContentsResult ReadThroughService(props::ShellItem& item, std::string_view extension,
                                           const props::ContentsNeeds* needs, const props::TextPieceSink& on_text);
  // Whether ReadItem would hand the item, a file, to the helper as a whole (the read-ahead's
  // test): a document type with a reader, not excluded or refused, not passed over by the
  // markup precheck of `needs`.
  bool GoesToService(props::ShellItem& item, const props::ContentsNeeds* needs);
  // The text of `item` and of the documents after it in this thread's read-ahead list, in one
  // batch; false when there is none to read with it (the caller reads it alone).
  bool ReadWithFollowers(props::ShellItem& item, const props::ContentsNeeds* needs,
                         const props::TextPieceSink& on_text, ExtractOutcome* outcome);
  ExtractionService& service();

  ContentsOptions options_;
  ExtractionService* service_;
  UnreadTally* tally_ = nullptr;
};

// Why a file named `name` whose reading ended with `status` counts as not read, for the end of
// a search to say; false when it does not count (it was read, holds no text, or was left out on
// purpose). The index keeps each file's status, so its route counts as the walk does.
bool UnreadReasonOf(props::ContentsStatus status, std::string_view name, const ContentsOptions& options,
                    UnreadReason* reason);

// What the crash memory knows an item by: its file's path, size and modification time, and
// the member chain for archive members.
FileIdentity IdentityOf(props::ShellItem& item);

// A text preview of at most `max_chars` characters: empty for 0; with a search term, the text
// from the term's first occurrence, led by "...\r\n" (empty when the term does not occur);
// "\r\n..." appended when the maximum was reached. Only plain text, and documents when the
// "use filters" flag is on, give text.
std::string TextExcerpt(size_t max_chars, props::ShellItem& item, props::ContentsSource& source,
                        std::string_view term = {}, props::ContentsResult* result = nullptr);

// The advice at the end of a search with a contents rule: the first of the types ".DOC",
// ".PDF", ".ODT" and ".WPD" that has no reader and that the search met (files of it are in
// `met`), or empty when none. `*all_read` tells whether every one of the four has a reader.
std::string MissingReaderAdvice(const ContentsOptions& options, const UnreadTally& met, bool* all_read = nullptr);
// Its text, for the type named.
std::string AdviceText(std::string_view type);
// The bit of bin1OffNotify that suppresses the advice once the user said so.
inline constexpr uint32_t kNotifyNoReaderAdvice = 0x2;
// The bit that suppresses the advice to add a searched folder to the index (string 11322).
inline constexpr uint32_t kNotifyIndexAdvice = 0x1;

}  // namespace trovix::engine
