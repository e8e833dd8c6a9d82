// ExtractionService: the search process's side of document extraction. Every document that
// needs a parser (PDF, Office and OpenDocument files, HTML, archives) is read by the helper
// program trovix-extract in a pool of sandboxed processes (platform/process_pool.h); this
// class sends the requests (platform/extract_protocol.h), streams the answers back, and keeps
// each request to its deadline. A helper that crashes or hangs costs that one request: the
// file is counted in the crash memory, and after its second failure it is skipped until it
// changes. A search being stopped passes its stop_token: a stop kills the helper under way at
// once, and the file it was reading is not charged (a stopped file is not a bad one). Answers are held to the caps of platform/extract_protocol.h (AnswerDecoder): a helper
// that sends more, or what its request cannot bring, is killed and counts as a crash.
//
// The helper is found as TROVIX_EXTRACT (a path) when set, else as "trovix-extract" beside
// the running program. A helper that cannot be started is not tried again in this process:
// every later request answers at once that there is no reader, and start_failure() says
// where the helper was looked for and why it did not start, for the front end to report.
//
// Thread-safety: every call may come from any thread; the pool hands each its own helper.
#pragma once

#include <atomic>
#include <functional>
#include <cstdint>
#include <memory>
#include <mutex>
#include <optional>
#include <stop_token>
#include <string>
#include <string_view>
#include <vector>

#include "engine/extraction/crash_memory.h"
#include "platform/extract_protocol.h"
#include "platform/process_pool.h"
#include "props/contents_source.h"

namespace trovix::engine {

struct ExtractionOptions {
  std::string program;              // empty: found as described above
  int helpers = 0;                  // 0: one per core
  int64_t timeout_ms = 5000;        // per request
  uint64_t memory_limit = 1ull << 30;  // address space of each helper
};

// Why the helper could not be started.
struct HelperStartFailure {
  std::string program;  // the path it was looked for at
  std::string reason;   // "No such file or directory", ...
};

// The error a front end shows once when documents went unread for that reason.
std::string HelperStartFailureMessage(const HelperStartFailure& failure);

// How one request ended.
struct ExtractOutcome {
  props::ContentsStatus status = props::ContentsStatus::kNoText;
  std::string message;
  bool helper_failed = false;  // the helper crashed or timed out on this request
  bool asked = true;           // false: a batch ended before this request was sent
  bool stopped = false;        // the caller's stop ended it: the status says nothing of the file
};

class ExtractionService {
 public:
  explicit ExtractionService(ExtractionOptions options, CrashMemory& memory = CrashMemory::Shared());
  // The process's service, made on first use with the default options.
  static ExtractionService& Shared();
  static std::string DefaultProgram();

  // The text of a file (members empty) or of an archive member; pieces go to `on_text`, which
  // may stop the reading. `identity` is what the crash memory knows the file by. Once `stop` is
  // requested the reading ends at once (ExtractOutcome::stopped).
  ExtractOutcome Text(const extract::ExtractRequest& request, const FileIdentity& identity,
                      const props::TextPieceSink& on_text, std::stop_token stop = {});
  // The texts of several files in one round trip to a helper (requests of kOpText, at most
  // extract::kMaxBatchRequests): the pieces of the `index`th go to `on_text(index, piece)`,
  // which may stop that one file's reading. A file the helper crashes or hangs on is charged
  // alone, as Text would charge it; the files after it are asked again in a new batch. One
  // outcome per request, in order. Once `stop` is requested the file under way ends at once
  // (ExtractOutcome::stopped, not charged) and the requests not yet answered are left unasked
  // (ExtractOutcome::asked false).
  using BatchTextSink = std::function<bool(size_t index, std::string_view piece)>;
  std::vector<ExtractOutcome> TextBatch(const std::vector<extract::ExtractRequest>& requests,
                                        const std::vector<FileIdentity>& identities, const BatchTextSink& on_text,
                                        std::stop_token stop = {});
  // The properties a document carries about itself.
  ExtractOutcome Properties(const extract::ExtractRequest& request, const FileIdentity& identity,
                            std::vector<extract::ExtractedProperty>* properties);
  // The members of an archive (or of the archive member the chain names).
  ExtractOutcome List(const extract::ExtractRequest& request, const FileIdentity& identity,
                      std::vector<extract::ArchiveMember>* members);

  bool ShouldSkip(const FileIdentity& identity) { return memory_.ShouldSkip(identity); }
  // Set once a request found that the helper cannot be started.
  std::optional<HelperStartFailure> start_failure() const;
  // The shared service's start failure; none when the shared service was never made.
  static std::optional<HelperStartFailure> SharedStartFailure();
  const ExtractionOptions& options() const { return options_; }
  // Helpers started so far (restarts included).
  uint64_t helper_starts() const { return pool_.starts(); }

 private:
  // Where the answers of one request go; the unused ones are null.
  struct Answers {
    const props::TextPieceSink* text = nullptr;
    std::vector<extract::ArchiveMember>* members = nullptr;
    std::vector<extract::ExtractedProperty>* properties = nullptr;
  };
  ExtractOutcome Run(const extract::ExtractRequest& request, const FileIdentity& identity, const Answers& answers,
                     std::stop_token stop = {});
  // The outcome of an exchange that ended without an end frame for `identity`'s request.
  ExtractOutcome Failed(platform::ExchangeStatus status, const platform::ExchangeFailure& failure,
                        const std::string& broken, const FileIdentity& identity);

  ExtractionOptions options_;
  std::string program_;  // the helper's path
  CrashMemory& memory_;
  platform::ProcessPool pool_;
  std::atomic<bool> start_failed_{false};
  mutable std::mutex failure_mutex_;
  HelperStartFailure start_failure_;  // guarded by failure_mutex_
};

// The message of a request that found the helper unable to start (the whole story, once, is
// HelperStartFailureMessage).
inline constexpr std::string_view kHelperNotStartedMessage =
    "the document reader could not be started";

// The message for a file the crash memory skips.
inline constexpr std::string_view kSkippedMessage = "skipped: this file crashed the reader twice";

}  // namespace trovix::engine
