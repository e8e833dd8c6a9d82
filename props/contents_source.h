// The document text of an item, as contents rules, grep() and excerpts read it. The search
// process installs a source (engine/extraction/contents_reader.h) that reads plain text itself and hands
// every other document to the sandboxed extraction helper; the rules only see this interface.
//
// Text arrives in pieces, in reading order, as UTF-8. The reader's callback may stop the
// reading early (return false) as soon as it has decided: nothing more is read or extracted.
//
// Thread-safety: a source may be used from several threads at once; each call reads one item.
#pragma once

#include <functional>
#include <string>
#include <string_view>
#include <stop_token>
#include <vector>

#include "props/shell_item.h"

namespace trovix::props {

enum class ContentsStatus {
  kText,         // text was read (possibly cut short by the caller or by a limit)
  kNoText,       // the document holds no text (an empty file, a picture-only PDF)
  kNoReader,     // nothing here reads this type of file, or the type is excluded
  kEncrypted,    // the document is locked
  kSkipped,      // this file crashed or hung the reader twice and is left alone until it changes
  kTooLarge,     // an archive member above the extraction size limit (or member reading off)
  kUnreadable,   // the file cannot be opened, or is malformed beyond reading
  kFailed,       // the reader crashed or timed out on this file just now
  kNotAFile,     // a folder, or a special file that must never be opened
};

struct ContentsResult {
  ContentsStatus status = ContentsStatus::kNoText;
  // For people: "no reader for .xyz", "encrypted", "skipped: this file crashed the reader twice".
  std::string message;
};

using TextPieceSink = std::function<bool(std::string_view piece)>;

// What a reader of the text looks for, when it can say so: plain texts (blanks folded) of
// which at least one must occur for the text to matter; a text that holds none of them gives
// the reader's answer without being read.
struct ContentsNeeds {
  std::vector<std::string> any_of;
  bool ignore_case = false;
};

class ContentsSource {
 public:
  virtual ~ContentsSource() = default;
  // Reads the item's text into `on_text` until the end or until it returns false.
  virtual ContentsResult Read(ShellItem& item, const TextPieceSink& on_text) = 0;
  // The same, for a reader that said what it needs: a source may pass over a document whose
  // bytes prove that it holds none of it, answering kText without handing on any text.
  virtual ContentsResult ReadFor(ShellItem& item, const ContentsNeeds& needs, const TextPieceSink& on_text) {
    (void)needs;
    return Read(item, on_text);
  }
  // The items this thread is about to read, in order: a source may read several of them in
  // one go when the first is read, and keep their text for their own Read. The next call on
  // the same thread (an empty list to end) forgets what was kept and not read. Once `stop` is
  // requested nothing more is asked ahead, and a reading under way on this thread ends at once
  // (its result then says nothing of the item): a search being stopped waits for no file.
  virtual void ReadAhead(const std::vector<ShellItemPtr>& items, std::stop_token stop = {}) {
    (void)items;
    (void)stop;
  }
};

}  // namespace trovix::props
