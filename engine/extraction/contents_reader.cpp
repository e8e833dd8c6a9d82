#include "engine/extraction/contents_reader.h"

#include <errno.h>
#include <fcntl.h>

#include <algorithm>
#include <cstring>
#include <map>
#include <mutex>
#include <unordered_map>

#include "base/file_name.h"
#include "engine/extraction/archive_folders.h"
#include "engine/extraction/markup_precheck.h"
#include "text/plain_text_reader.h"
#include "text/rtf_reader.h"
#include "base/document_types.h"
#include "rules/patterns/text_pattern.h"

namespace trovix::engine {
namespace {

using props::ContentsResult;
using props::ContentsStatus;

// Paths this long never mark a type unusable: their failure may be the path's.
constexpr size_t kLongPath = 260;

// szGrepExcludeTypes: extensions separated by commas, semicolons or blanks, each perhaps
// written ".log" or "*.log".
bool IsExcluded(std::string_view extension, std::string_view list) {
  if (extension.empty() || list.empty()) return false;
  size_t i = 0;
  while (i < list.size()) {
    size_t end = list.find_first_of(",; \t", i);
    if (end == std::string_view::npos) end = list.size();
    std::string_view piece = list.substr(i, end - i);
    while (!piece.empty() && (piece.front() == '*' || piece.front() == '.')) piece.remove_prefix(1);
    if (!piece.empty() && AsciiLower(piece) == extension) return true;
    i = end + 1;
  }
  return false;
}

struct FilterTable {
  std::mutex mutex;
  std::map<std::string, FilterRecord> records;
};

FilterTable& Filters() {
  static FilterTable* table = new FilterTable;
  return *table;
}

// The record of a type that is read through the helper, made on first use.
FilterRecord* RecordFor(const std::string& extension) {
  FilterTable& table = Filters();
  auto it = table.records.find(extension);
  if (it == table.records.end()) {
    FilterRecord record;
    record.extension = extension;
    record.usable = HasDocumentReader(extension) ? 1 : 0;
    if (record.usable > 0) record.id = kExtractorClassId;
    it = table.records.emplace(extension, record).first;
  }
  return &it->second;
}

void MarkUnusable(const std::string& extension, std::string_view path) {
  if (extension == "pdf" || path.size() >= kLongPath) return;
  FilterTable& table = Filters();
  std::lock_guard lock(table.mutex);
  FilterRecord* record = RecordFor(extension);
  if (record->usable > 0) --record->usable;
}

std::string NoReaderMessage(std::string_view extension) {
  return extension.empty() ? "no reader for this file" : "no reader for ." + std::string(extension);
}

ContentsResult Result(ContentsStatus status, std::string message = {}) { return {status, std::move(message)}; }

// Hands a text reader's pieces on until the end or until the caller has seen enough.
ContentsResult Pump(text::TextReader& reader, size_t block, const props::TextPieceSink& on_text) {
  // One buffer per reading thread, kept between files: a fresh one per file costs more in page
  // faults than reading a small file does. (A sink never reads another file from inside its
  // callback, which would share it.)
  thread_local std::string piece;
  bool any = false;
  for (;;) {
    piece.clear();
    text::ReadStatus status = reader.Read(&piece, block);
    if (!piece.empty()) {
      any = true;
      if (!on_text(piece)) return Result(ContentsStatus::kText);
    }
    if (status == text::ReadStatus::kEnd) break;
    if (status == text::ReadStatus::kError)
      return any ? Result(ContentsStatus::kText) : Result(ContentsStatus::kUnreadable, "read error");
  }
  return Result(any ? ContentsStatus::kText : ContentsStatus::kNoText);
}

// The check for these needs, made once per thread for as long as the needs stay the same (a
// search asks the same of every page).
const MarkupPrecheck* PrecheckFor(const props::ContentsNeeds& needs) {
  thread_local std::vector<std::string> made_for;
  thread_local bool made_ignore_case = false;
  thread_local std::unique_ptr<MarkupPrecheck> check;
  thread_local bool made = false;
  if (!made || made_for != needs.any_of || made_ignore_case != needs.ignore_case) {
    made_for = needs.any_of;
    made_ignore_case = needs.ignore_case;
    check = MarkupPrecheck::Make(needs.any_of, needs.ignore_case);
    made = true;
  }
  return check.get();
}

ContentsResult FromOutcome(ExtractOutcome outcome) { return {outcome.status, std::move(outcome.message)}; }

// A document read ahead: what its own Read will hand on.
struct KeptText {
  ExtractOutcome outcome;
  std::vector<std::string> pieces;
  size_t bytes = 0;
  bool whole = true;  // false: it gave more than is kept, and is read again on its own
};

// The read-ahead of one thread (ContentsReader::ReadAhead): the items it is about to read,
// and the texts read ahead that they have not taken yet. The owner is the reader that was
// given the list; another reader on the same thread finds none.
struct ReadAheadList {
  const void* owner = nullptr;
  std::stop_token stop;
  std::vector<props::ShellItemPtr> items;
  std::unordered_map<const props::ShellItem*, KeptText> kept;
};

ReadAheadList& ThisThreadsList() {
  thread_local ReadAheadList list;
  return list;
}

// The stop of the search `reader` reads for on this thread: a stop ends the reading under way
// at once (the helper is killed) instead of at the helper's deadline.
std::stop_token ThisThreadsStop(const void* reader) {
  const ReadAheadList& list = ThisThreadsList();
  return list.owner == reader ? list.stop : std::stop_token();
}

// Single compressed files are read only when the search asks (--search-zip); a compressed tar
// is an archive, entered as a folder, never read as one file. Empty when the file may be read.
std::string CompressedRefusal(std::string_view name, std::string_view extension, uint32_t bin_search_flags) {
  if (!base::IsOneOf(extension, base::kCompressedTypes)) return {};
  if (!(bin_search_flags & kSearchFlagSearchZip)) return "compressed files are read only with --search-zip";
  if (ArchiveClassOf(name) != 0) return "a compressed archive: it is read as a folder";
  return {};
}

}  // namespace

bool HasDocumentReader(std::string_view extension) {
  return base::HasDocumentTextReader(extension) || base::IsOneOf(extension, base::kCompressedTypes);
}

const FilterRecord* FindFilter(std::string_view path, const ContentsOptions& options) {
  const std::string extension = LowerExtension(path);
  if (IsExcluded(extension, options.grep_exclude_types)) return nullptr;
  FilterTable& table = Filters();
  std::lock_guard lock(table.mutex);
  const FilterRecord* record = RecordFor(extension);
  return record->usable > 0 ? record : nullptr;
}

void ResetFilterRecords() {
  FilterTable& table = Filters();
  std::lock_guard lock(table.mutex);
  table.records.clear();
}

FileIdentity IdentityOf(props::ShellItem& item) {
  FileIdentity identity;
  const props::ArchiveLocation* archive = item.archive();
  identity.key = archive ? archive->container : item.path();
  if (archive) {
    for (const std::string& member : archive->members) (identity.key += '\0') += member;
    platform::FileStatus st;
    if (platform::StatPath(AT_FDCWD, archive->container, true, &st) == 0) {
      identity.size = st.size;
      identity.modified = st.modified;
    }
  } else if (const platform::FileStatus* st = item.Status()) {
    identity.size = st->size;
    identity.modified = st->modified;
  }
  return identity;
}

ContentsReader::ContentsReader(ContentsOptions options, ExtractionService* service)
    : options_(std::move(options)), service_(service) {
  if (options_.max_stream_extract_size < 10'000) options_.max_stream_extract_size = 0;
}

ExtractionService& ContentsReader::service() { return service_ ? *service_ : ExtractionService::Shared(); }

ContentsResult ContentsReader::Read(props::ShellItem& item, const props::TextPieceSink& on_text) {
  ContentsResult result = ReadItem(item, nullptr, on_text);
  if (tally_) CountUnread(item, result);
  return result;
}

ContentsResult ContentsReader::ReadFor(props::ShellItem& item, const props::ContentsNeeds& needs,
                                       const props::TextPieceSink& on_text) {
  ContentsResult result = ReadItem(item, &needs, on_text);
  if (tally_) CountUnread(item, result);
  return result;
}

bool UnreadReasonOf(props::ContentsStatus status, std::string_view name, const ContentsOptions& options,
                    UnreadReason* reason) {
  const std::string extension = LowerExtension(name);
  switch (status) {
    case ContentsStatus::kText:
    case ContentsStatus::kNoText:
    case ContentsStatus::kNotAFile:
      return false;
    case ContentsStatus::kEncrypted: *reason = UnreadReason::kEncrypted; return true;
    case ContentsStatus::kTooLarge:
      *reason = options.max_stream_extract_size < 10'000 ? UnreadReason::kMembersOff : UnreadReason::kTooLarge;
      return true;
    case ContentsStatus::kUnreadable:
    case ContentsStatus::kFailed:
    case ContentsStatus::kSkipped: *reason = UnreadReason::kDamaged; return true;
    case ContentsStatus::kNoReader:
      // Types the user excluded are left out on purpose, and a compressed tar is an archive
      // (entered as a folder, never read as one file): neither is news at the end.
      if (IsExcluded(extension, options.grep_exclude_types)) return false;
      if (base::IsOneOf(extension, base::kCompressedTypes)) {
        if (ArchiveClassOf(name) != 0) return false;
        *reason = UnreadReason::kNeedsSearchZip;
      } else if (!(options.bin_search_flags & kSearchFlagUseFilters)) {
        *reason = UnreadReason::kDocumentsOff;
      } else if (HasDocumentReader(extension)) {
        *reason = UnreadReason::kReaderMissing;
      } else {
        *reason = UnreadReason::kNotText;
      }
      return true;
  }
  return false;
}

void ContentsReader::CountUnread(props::ShellItem& item, const ContentsResult& result) {
  // A reading cut short by the search's stop says nothing of the file.
  if (ThisThreadsStop(this).stop_requested()) return;
  UnreadReason reason;
  if (!UnreadReasonOf(result.status, item.name(), options_, &reason)) return;
  // Two rules (or a rule and grep()) may read one file; it is one file not read.
  if (item.unread_counted()) return;
  item.set_unread_counted();
  tally_->Add(AsciiLower(item.extension()), reason);
}

ContentsResult ContentsReader::ReadItem(props::ShellItem& item, const props::ContentsNeeds* needs,
                                        const props::TextPieceSink& on_text) {
  // Folders have no text, and special files must never be opened: a FIFO would block. What
  // the folder's listing said of an item is not asked again: the open checks a file's type
  // once more (OpenRegularFile), and a stat per file costs as much as reading a small one.
  const platform::FileType listed = item.IsFileSystem() ? item.Type() : platform::FileType::kUnknown;
  if (listed == platform::FileType::kDirectory) return Result(ContentsStatus::kNotAFile);
  if (listed != platform::FileType::kRegular) {
    const platform::FileStatus* st = item.Status();
    if (!st) return Result(ContentsStatus::kUnreadable, std::strerror(item.status_error()));
    if (st->type != platform::FileType::kRegular) return Result(ContentsStatus::kNotAFile);
  }
  const std::string extension = AsciiLower(item.extension());
  if (IsExcluded(extension, options_.grep_exclude_types))
    return Result(ContentsStatus::kNoReader, "." + extension + " is excluded from contents searches");
  return item.IsFileSystem() ? ReadFile(item, needs, on_text) : ReadMember(item, on_text);
}

ContentsResult ContentsReader::ReadFile(props::ShellItem& item, const props::ContentsNeeds* needs,
                                        const props::TextPieceSink& on_text) {
  const std::string extension = AsciiLower(item.extension());
  const bool use_filters = (options_.bin_search_flags & kSearchFlagUseFilters) != 0;
  if (std::string refusal = CompressedRefusal(item.name(), extension, options_.bin_search_flags); !refusal.empty())
    return Result(ContentsStatus::kNoReader, std::move(refusal));
  if (use_filters && extension != "rtf" && HasDocumentReader(extension)) {
    if (needs && base::IsOneOf(extension, base::kHtmlTypes) && FindFilter(item.path(), options_)) {
      const MarkupPrecheck* check = PrecheckFor(*needs);
      if (check && !check->MayHoldFile(item.path()))
        return Result(ContentsStatus::kText, "passed over: its bytes cannot hold the words");
    }
    return ReadThroughService(item, extension, needs, on_text);
  }

  auto source = text::OpenFileSource(item.path());
  if (!source) {
    const int error = errno;
    // A file that went away since the listing is known as vanished, as a stat would have
    // found it, so that the search passes over it instead of deciding on no text.
    if (error == ENOENT) item.Status();
    if (error == EINVAL || error == EISDIR) return Result(ContentsStatus::kNotAFile);
    return Result(ContentsStatus::kUnreadable, std::strerror(error));
  }
  text::TextOpen open = text::OpenTextReader(std::move(source), extension);
  if (open.kind == 0) return Result(ContentsStatus::kNoText);
  if (open.kind != 4 && open.reader) {
    // A file without an extension may be a mailbox, whose bodies only its reader decodes.
    if (extension.empty() && use_filters) return ReadUnnamedText(item, *open.reader, on_text);
    return Pump(*open.reader, options_.block_bytes, on_text);
  }
  if (!use_filters) return Result(ContentsStatus::kNoReader, "reading documents is switched off");
  if (extension == "rtf") {
    auto rtf_source = text::OpenFileSource(item.path());
    if (!rtf_source) return Result(ContentsStatus::kUnreadable, std::strerror(errno));
    auto reader = text::OpenRtfReader(std::move(rtf_source));
    return Pump(*reader, options_.block_bytes, on_text);
  }
  return ReadThroughService(item, extension, needs, on_text);
}

ContentsResult ContentsReader::ReadUnnamedText(props::ShellItem& item, text::TextReader& reader,
                                               const props::TextPieceSink& on_text) {
  // One buffer per reading thread, as Pump keeps its own.
  thread_local std::string head;
  head.clear();
  const text::ReadStatus status = reader.Read(&head, options_.block_bytes);
  if (base::LooksLikeMailbox(head)) {
    extract::ExtractRequest request;
    request.op = extract::kOpText;
    request.path = item.path();
    request.limits.max_member_bytes = options_.max_stream_extract_size;
    ExtractOutcome outcome = service().Text(request, IdentityOf(item), on_text, ThisThreadsStop(this));
    // A helper that cannot read it leaves the text as it stands, which is still worth searching.
    if (outcome.status != ContentsStatus::kNoReader && outcome.status != ContentsStatus::kFailed)
      return FromOutcome(std::move(outcome));
  }
  if (!head.empty() && !on_text(head)) return Result(ContentsStatus::kText);
  if (status == text::ReadStatus::kEnd)
    return Result(head.empty() ? ContentsStatus::kNoText : ContentsStatus::kText);
  if (status == text::ReadStatus::kError)
    return head.empty() ? Result(ContentsStatus::kUnreadable, "read error") : Result(ContentsStatus::kText);
  ContentsResult rest = Pump(reader, options_.block_bytes, on_text);
  if (!head.empty() && rest.status == ContentsStatus::kNoText) rest.status = ContentsStatus::kText;
  return rest;
}

ContentsResult ContentsReader::ReadThroughService(props::ShellItem& item, std::string_view extension,
                                                  const props::ContentsNeeds* needs,
                                                  const props::TextPieceSink& on_text) {
  const std::string ext(extension);
  if (!FindFilter(item.path(), options_)) {
    // No reader of our own: a content plugin that extracts text and takes the file reads it.
    if (props::PluginColumnProvider* plugin = props::TextPluginFor(item)) return ReadThroughPlugin(*plugin, item, on_text);
    return Result(ContentsStatus::kNoReader, NoReaderMessage(ext));
  }
  ExtractOutcome outcome;
  ReadAheadList& list = ThisThreadsList();
  auto kept = list.owner == this ? list.kept.find(&item) : list.kept.end();
  if (kept != list.kept.end() && kept->second.whole) {
    outcome = std::move(kept->second.outcome);
    for (const std::string& piece : kept->second.pieces)
      if (!on_text(piece)) break;
    list.kept.erase(kept);
  } else {
    if (kept != list.kept.end()) list.kept.erase(kept);
    if (!ReadWithFollowers(item, needs, on_text, &outcome)) {
      extract::ExtractRequest request;
      request.op = extract::kOpText;
      request.path = item.path();
      request.limits.max_member_bytes = options_.max_stream_extract_size;
      outcome = service().Text(request, IdentityOf(item), on_text, ThisThreadsStop(this));
    }
  }
  // A reader that is not there: this type is not tried again in this process.
  if (outcome.status == ContentsStatus::kNoReader) MarkUnusable(ext, item.path());
  return FromOutcome(std::move(outcome));
}

void ContentsReader::ReadAhead(const std::vector<props::ShellItemPtr>& items, std::stop_token stop) {
  ReadAheadList& list = ThisThreadsList();
  list.kept.clear();
  list.stop = std::move(stop);
  list.owner = items.empty() ? nullptr : this;
  list.items = items;
}

bool ContentsReader::GoesToService(props::ShellItem& item, const props::ContentsNeeds* needs) {
  // As ReadItem and ReadFile decide, without opening the file: what the listing said of it.
  if (!item.IsFileSystem() || item.Type() != platform::FileType::kRegular) return false;
  const std::string extension = AsciiLower(item.extension());
  if (IsExcluded(extension, options_.grep_exclude_types)) return false;
  if (!(options_.bin_search_flags & kSearchFlagUseFilters) || extension == "rtf" || !HasDocumentReader(extension))
    return false;
  if (!CompressedRefusal(item.name(), extension, options_.bin_search_flags).empty()) return false;
  if (!FindFilter(item.path(), options_)) return false;
  if (needs && base::IsOneOf(extension, base::kHtmlTypes)) {
    const MarkupPrecheck* check = PrecheckFor(*needs);
    if (check && !check->MayHoldFile(item.path())) return false;
  }
  return true;
}

bool ContentsReader::ReadWithFollowers(props::ShellItem& item, const props::ContentsNeeds* needs,
                                       const props::TextPieceSink& on_text, ExtractOutcome* outcome) {
  ReadAheadList& list = ThisThreadsList();
  if (list.owner != this || list.stop.stop_requested()) return false;
  auto at = std::find_if(list.items.begin(), list.items.end(),
                         [&item](const props::ShellItemPtr& p) { return p.get() == &item; });
  if (at == list.items.end()) return false;
  std::vector<props::ShellItem*> followers;
  for (++at; at != list.items.end() && followers.size() + 1 < kMaxReadAheadFiles; ++at) {
    props::ShellItem& next = **at;
    if (list.kept.count(&next) || !GoesToService(next, needs)) continue;
    const platform::FileStatus* st = next.Status();
    if (st == nullptr || st->size > kMaxReadAheadFileBytes) continue;
    followers.push_back(&next);
  }
  if (followers.empty()) return false;
  std::vector<extract::ExtractRequest> requests(followers.size() + 1);
  std::vector<FileIdentity> identities;
  for (size_t i = 0; i < requests.size(); ++i) {
    props::ShellItem& one = i == 0 ? item : *followers[i - 1];
    requests[i].op = extract::kOpText;
    requests[i].path = one.path();
    requests[i].limits.max_member_bytes = options_.max_stream_extract_size;
    identities.push_back(IdentityOf(one));
  }
  std::vector<KeptText> texts(followers.size());
  size_t kept_bytes = 0;
  std::vector<ExtractOutcome> outcomes =
      service().TextBatch(requests, identities, [&](size_t index, std::string_view piece) {
        if (index == 0) return on_text(piece);
        KeptText& kept = texts[index - 1];
        if (!kept.whole) return false;
        if (kept_bytes + piece.size() > kMaxKeptTextBytes) {
          // Too much to hold: its own Read asks for it again, streaming.
          kept_bytes -= kept.bytes;
          kept.whole = false;
          kept.pieces.clear();
          return false;
        }
        kept_bytes += piece.size();
        kept.bytes += piece.size();
        kept.pieces.emplace_back(piece);
        return true;
      },
      // A stop ends the batch at once, even while the helper hangs on a file.
      list.stop);
  *outcome = std::move(outcomes[0]);
  // A follower the helper failed on was charged in the crash memory as it would have been
  // read alone; its Read gives that outcome.
  for (size_t i = 0; i < followers.size(); ++i) {
    // Its own Read asks for it, if the search goes on.
    if (!outcomes[i + 1].asked || outcomes[i + 1].stopped) continue;
    texts[i].outcome = std::move(outcomes[i + 1]);
    list.kept[followers[i]] = std::move(texts[i]);
  }
  return true;
}

ContentsResult ContentsReader::ReadThroughPlugin(props::PluginColumnProvider& plugin, props::ShellItem& item,
                                                 const props::TextPieceSink& on_text) {
  const props::PluginOutcome outcome =
      plugin.FullText(item, kPluginTextBytes, [&on_text](const std::string& piece) { return on_text(piece); });
  if (outcome.status == S_OK) return Result(ContentsStatus::kText);
  if (outcome.status == S_FALSE) return Result(ContentsStatus::kNoText);
  return Result(outcome.host_failed ? ContentsStatus::kFailed : ContentsStatus::kUnreadable, outcome.message);
}

ContentsResult ContentsReader::ReadMember(props::ShellItem& item, const props::TextPieceSink& on_text) {
  const props::ArchiveLocation* archive = item.archive();
  const uint64_t limit = options_.max_stream_extract_size;
  if (limit == 0) return Result(ContentsStatus::kTooLarge, "reading inside archives is switched off");
  const std::string extension = AsciiLower(item.extension());
  if (std::string refusal = CompressedRefusal(item.name(), extension, options_.bin_search_flags); !refusal.empty())
    return Result(ContentsStatus::kNoReader, std::move(refusal));
  const platform::FileStatus* st = item.Status();
  if (!st || st->size == 0) return Result(ContentsStatus::kNoText);
  if (st->size > limit) return Result(ContentsStatus::kTooLarge, "larger than the extraction size limit");
  extract::ExtractRequest request;
  request.op = extract::kOpText;
  request.path = archive->container;
  request.members = archive->members;
  request.limits.max_member_bytes = limit;
  return FromOutcome(service().Text(request, IdentityOf(item), on_text, ThisThreadsStop(this)));
}

std::string TextExcerpt(size_t max_chars, props::ShellItem& item, props::ContentsSource& source,
                        std::string_view term, props::ContentsResult* result) {
  if (max_chars == 0) return {};
  std::unique_ptr<rules::TextPattern> pattern;
  if (!term.empty()) {
    pattern = rules::TextPattern::Compile(term, rules::kPatternIgnoreCase, rules::kModePlain);
    if (!pattern) return {};
  }
  const size_t keep = term.size() * 4 + 16;  // enough to find a term cut in two by a piece
  bool found = term.empty();
  std::string pending;
  std::string collected;
  size_t chars = 0;
  auto take = [&](std::string_view text) {
    for (size_t i = 0; i < text.size() && chars < max_chars; ++chars) {
      size_t next = i + 1;
      while (next < text.size() && (static_cast<uint8_t>(text[next]) & 0xC0) == 0x80) ++next;
      collected.append(text.substr(i, next - i));
      i = next;
    }
    return chars < max_chars;
  };
  props::ContentsResult read = source.Read(item, [&](std::string_view piece) {
    if (found) return take(piece);
    pending.append(piece);
    rules::MatchRange hit;
    if (pattern->Match(pending, &hit)) {
      found = true;
      return take(std::string_view(pending).substr(hit.offset));
    }
    if (pending.size() > keep) {
      size_t cut = pending.size() - keep;
      while (cut > 0 && (static_cast<uint8_t>(pending[cut]) & 0xC0) == 0x80) --cut;
      pending.erase(0, cut);
    }
    return true;
  });
  if (result) *result = std::move(read);
  if (!found || collected.empty()) return {};
  std::string out = term.empty() ? std::string() : std::string("...\r\n");
  out += collected;
  if (chars >= max_chars) out += "\r\n...";
  return out;
}

std::string MissingReaderAdvice(const ContentsOptions& options, const UnreadTally& met, bool* all_read) {
  std::string advice;
  bool all = true;
  for (std::string_view type : {".DOC", ".PDF", ".ODT", ".WPD"}) {
    const std::string lower = AsciiLower(type);
    if (FindFilter("x" + lower, options)) continue;
    all = false;
    // A type the search never met is no news, however it stands with its reader.
    if (advice.empty() && met.Met(lower.substr(1))) advice = type;
  }
  if (all_read) *all_read = all;
  return advice;
}

std::string AdviceText(std::string_view type) {
  return "Trovix has no reader for the text of " + std::string(type) +
         " documents, so contents searches pass over such files.";
}

}  // namespace trovix::engine
