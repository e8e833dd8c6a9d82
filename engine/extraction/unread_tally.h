// UnreadTally: the files a contents search met but could not read, counted by type and by
// why, so that the end of the search can say so once ("2,335 .gz files not read: --search-zip
// reads them") instead of passing them over without a word. The search fills one tally; both
// front ends read its counts and phrase them with DescribeUnread.
//
// Thread-safety: Add may be called from every reading thread at once (the parallel matcher).
// Only files that were not read take the lock, and a file that was not read cost at least an
// open and a sample, so the lock is never the dearer part.
#pragma once

#include <cstdint>
#include <map>
#include <mutex>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

namespace trovix::engine {

// Why a file's text was not read, in the order the end-of-search note names them: the ones a
// setting changes first, files nothing reads last.
enum class UnreadReason {
  kNeedsSearchZip,  // a single compressed file, and reading inside them is off
  kDocumentsOff,    // a document, and reading documents (binSearchFlags 0x8) is off
  kMembersOff,      // an archive member, and reading inside archives is off
  kTooLarge,        // an archive member above the extraction size limit
  kReaderMissing,   // a document type whose reader could not be used in this run
  kEncrypted,
  kDamaged,         // could not be opened, is damaged, or crashed or hung the reader
  kNotText,         // not text, and nothing reads its type
};

struct UnreadCount {
  std::string type;  // the extension in lower case, without the period; empty for none
  UnreadReason reason = UnreadReason::kNotText;
  int64_t files = 0;
};

class UnreadTally {
 public:
  void Add(std::string_view type, UnreadReason reason, int64_t files = 1);
  void Clear();
  // Sorted by reason, then by count (most first), then by type.
  std::vector<UnreadCount> Counts() const;
  // Whether any file of `type` (lower case) was met and not read.
  bool Met(std::string_view type) const;

 private:
  mutable std::mutex mutex_;
  std::map<std::pair<std::string, UnreadReason>, int64_t> counts_;
};

// The few words each front end says its own way: how its user turns reading compressed files
// on (the console's switch, the desktop's setting).
struct UnreadWording {
  std::string search_zip = "--search-zip reads them";
};

// One sentence per type and reason ("2,335 .gz files not read: --search-zip reads them"),
// at most `max_sentences`; files nothing reads share one closing sentence that names their
// commonest types. Empty when every file met was read.
std::vector<std::string> DescribeUnread(const std::vector<UnreadCount>& counts, const UnreadWording& wording,
                                        size_t max_sentences = 6);

// 2335 -> "2,335".
std::string GroupedCount(int64_t n);

}  // namespace trovix::engine
