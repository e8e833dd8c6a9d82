#include "engine/extraction/extraction_service.h"

#include <limits.h>
#include <stdlib.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>

namespace trovix::engine {
namespace {

using props::ContentsStatus;

std::atomic<ExtractionService*> g_shared{nullptr};

platform::PoolOptions PoolOptionsOf(const ExtractionOptions& options) {
  platform::PoolOptions pool;
  pool.program = options.program.empty() ? ExtractionService::DefaultProgram() : options.program;
  pool.args = {"--serve"};
  pool.size = options.helpers;
  pool.memory_limit = options.memory_limit;
  return pool;
}

ContentsStatus StatusOf(extract::ExtractCode code) {
  switch (code) {
    case extract::kEndOk:
    case extract::kEndLimit:
    case extract::kEndCancelled: return ContentsStatus::kText;
    case extract::kEndNoText: return ContentsStatus::kNoText;
    case extract::kEndNoReader: return ContentsStatus::kNoReader;
    case extract::kEndEncrypted: return ContentsStatus::kEncrypted;
    case extract::kEndTooLarge: return ContentsStatus::kTooLarge;
    case extract::kEndUnreadable:
    case extract::kEndBadRequest: return ContentsStatus::kUnreadable;
  }
  return ContentsStatus::kUnreadable;
}

}  // namespace

std::string HelperStartFailureMessage(const HelperStartFailure& failure) {
  return "cannot start the document reader " + failure.program + " (" + failure.reason +
         "): the text and properties of documents (PDF, Office, OpenDocument, HTML), the "
         "properties of photos, music, videos and programs, and what archives hold were not "
         "read; install trovix-extract beside this program or name it in TROVIX_EXTRACT";
}

ExtractionService::ExtractionService(ExtractionOptions options, CrashMemory& memory)
    : options_(std::move(options)),
      program_(options_.program.empty() ? DefaultProgram() : options_.program),
      memory_(memory),
      pool_(PoolOptionsOf(options_)) {}

ExtractionService& ExtractionService::Shared() {
  // Never destroyed: helpers may still be asked from detached threads at exit; the pool's
  // helpers end with the process (they die with their parent).
  static ExtractionService* service = [] {
    auto* made = new ExtractionService(ExtractionOptions{});
    g_shared.store(made);
    return made;
  }();
  return *service;
}

std::optional<HelperStartFailure> ExtractionService::start_failure() const {
  if (!start_failed_.load()) return std::nullopt;
  std::lock_guard lock(failure_mutex_);
  return start_failure_;
}

std::optional<HelperStartFailure> ExtractionService::SharedStartFailure() {
  const ExtractionService* shared = g_shared.load();
  return shared ? shared->start_failure() : std::nullopt;
}

std::string ExtractionService::DefaultProgram() {
  return platform::HelperBesideThisProgram("TROVIX_EXTRACT", "trovix-extract");
}

ExtractOutcome ExtractionService::Text(const extract::ExtractRequest& request, const FileIdentity& identity,
                                       const props::TextPieceSink& on_text, std::stop_token stop) {
  return Run(request, identity, {&on_text, nullptr, nullptr}, std::move(stop));
}

ExtractOutcome ExtractionService::Properties(const extract::ExtractRequest& request, const FileIdentity& identity,
                                             std::vector<extract::ExtractedProperty>* properties) {
  return Run(request, identity, {nullptr, nullptr, properties});
}

ExtractOutcome ExtractionService::List(const extract::ExtractRequest& request, const FileIdentity& identity,
                                       std::vector<extract::ArchiveMember>* members) {
  return Run(request, identity, {nullptr, members, nullptr});
}

ExtractOutcome ExtractionService::Run(const extract::ExtractRequest& request, const FileIdentity& identity,
                                      const Answers& answers, std::stop_token stop) {
  const props::TextPieceSink* on_text = answers.text;
  std::vector<extract::ArchiveMember>* members = answers.members;
  ExtractOutcome outcome;
  if (memory_.ShouldSkip(identity)) {
    outcome.status = ContentsStatus::kSkipped;
    outcome.message = std::string(kSkippedMessage);
    return outcome;
  }
  if (start_failed_.load()) {
    outcome.status = ContentsStatus::kNoReader;
    outcome.message = std::string(kHelperNotStartedMessage);
    return outcome;
  }
  // Every frame is checked against the caps of its request (platform/extract_protocol.h) before
  // anything of it is kept; a helper that goes beyond them is killed.
  extract::AnswerDecoder decoder(request);
  bool any_text = false;
  platform::ExchangeFailure failure;
  platform::ExchangeStatus status = pool_.Exchange(
      extract::kExtractRequest, request.Encode(), extract::kExtractEnd,
      [&](const platform::Frame& frame) {
        switch (decoder.Take(frame)) {
          case extract::AnswerDecoder::kBroken: return platform::FrameVerdict::kRefuse;
          case extract::AnswerDecoder::kEnd: return platform::FrameVerdict::kMore;
          case extract::AnswerDecoder::kMore: break;
        }
        bool more = true;
        if (frame.type == extract::kExtractText) {
          any_text = true;
          more = on_text == nullptr || (*on_text)(frame.payload);
        } else if (frame.type == extract::kExtractMember && members) {
          members->push_back(std::move(decoder.member()));
        } else if (frame.type == extract::kExtractProperty && answers.properties) {
          answers.properties->push_back(std::move(decoder.property()));
        }
        return more ? platform::FrameVerdict::kMore : platform::FrameVerdict::kCancel;
      },
      options_.timeout_ms, &failure, {decoder.max_frame(), decoder.max_bytes()}, 1, std::move(stop));
  const bool ended = decoder.ended();
  const extract::ExtractEnd& end = decoder.end();

  if (status != platform::ExchangeStatus::kOk) return Failed(status, failure, decoder.broken(), identity);
  if (!ended) {
    outcome.status = ContentsStatus::kUnreadable;
    outcome.message = "the reader's answer was damaged";
    return outcome;
  }
  memory_.RecordSuccess(identity);
  outcome.status = StatusOf(end.code);
  // Text cut short by the caller or a limit is still text; a document that ended fine
  // without any is one with none.
  if (outcome.status == ContentsStatus::kText && !any_text && on_text != nullptr)
    outcome.status = ContentsStatus::kNoText;
  if ((members != nullptr || answers.properties != nullptr) && outcome.status == ContentsStatus::kNoText)
    outcome.status = ContentsStatus::kText;
  outcome.message = end.message;
  return outcome;
}

ExtractOutcome ExtractionService::Failed(platform::ExchangeStatus status, const platform::ExchangeFailure& failure,
                                         const std::string& broken, const FileIdentity& identity) {
  ExtractOutcome outcome;
  if (status == platform::ExchangeStatus::kUnavailable) {
    // Say why in the words of the file system where the program is missing or cannot run.
    HelperStartFailure start{program_, failure.what.empty() ? "it did not start" : failure.what};
    if (::access(program_.c_str(), X_OK) != 0) start.reason = std::strerror(errno);
    {
      std::lock_guard lock(failure_mutex_);
      if (!start_failed_.load()) start_failure_ = start;
      start_failed_.store(true);
    }
    outcome.status = ContentsStatus::kNoReader;
    outcome.message = std::string(kHelperNotStartedMessage);
    return outcome;
  }
  if (status == platform::ExchangeStatus::kStopped) {
    // The helper was killed for the caller's stop, not for this file: nothing is remembered.
    outcome.status = ContentsStatus::kFailed;
    outcome.stopped = true;
    outcome.message = "the reading was stopped";
    return outcome;
  }
  memory_.RecordFailure(identity);
  outcome.status = ContentsStatus::kFailed;
  outcome.helper_failed = true;
  if (status == platform::ExchangeStatus::kTimedOut)
    outcome.message = "the reader took too long and was stopped";
  else if (status == platform::ExchangeStatus::kRefused)
    outcome.message = "the reader's answer was refused and the reader stopped (" +
                      (broken.empty() ? failure.what : broken) + ")";
  else
    outcome.message = "the reader crashed (" + failure.what + ")";
  return outcome;
}

std::vector<ExtractOutcome> ExtractionService::TextBatch(const std::vector<extract::ExtractRequest>& requests,
                                                         const std::vector<FileIdentity>& identities,
                                                         const BatchTextSink& on_text,
                                                         std::stop_token stop) {
  std::vector<ExtractOutcome> outcomes(requests.size());
  // Files the crash memory skips are answered here; the others go in batches.
  std::vector<size_t> pending;
  for (size_t i = 0; i < requests.size(); ++i) {
    if (memory_.ShouldSkip(identities[i])) {
      outcomes[i].status = ContentsStatus::kSkipped;
      outcomes[i].message = std::string(kSkippedMessage);
    } else {
      pending.push_back(i);
    }
  }
  size_t next = 0;  // into pending
  while (next < pending.size()) {
    if (stop.stop_requested()) {
      for (; next < pending.size(); ++next) outcomes[pending[next]].asked = false;
      break;
    }
    if (start_failed_.load()) {
      for (; next < pending.size(); ++next) {
        outcomes[pending[next]].status = ContentsStatus::kNoReader;
        outcomes[pending[next]].message = std::string(kHelperNotStartedMessage);
      }
      break;
    }
    extract::ExtractBatch batch;
    std::vector<size_t> members;  // the index in `requests` of each request of the batch
    for (size_t k = next; k < pending.size() && batch.requests.size() < extract::kMaxBatchRequests; ++k) {
      batch.requests.push_back(requests[pending[k]]);
      members.push_back(pending[k]);
    }
    // Each answer is checked against the caps of its own request, as a single one is.
    size_t at = 0;  // the answer under way
    auto decoder = std::make_unique<extract::AnswerDecoder>(batch.requests[0]);
    bool any_text = false;
    uint32_t max_frame = 0;
    uint64_t max_bytes = 0;
    for (const extract::ExtractRequest& r : batch.requests) {
      extract::AnswerDecoder d(r);
      max_frame = std::max(max_frame, d.max_frame());
      max_bytes = std::max(max_bytes, d.max_bytes());
    }
    platform::ExchangeFailure failure;
    platform::ExchangeStatus status = pool_.Exchange(
        extract::kExtractBatch, batch.Encode(), extract::kExtractEnd,
        [&](const platform::Frame& frame) {
          if (at >= members.size()) return platform::FrameVerdict::kRefuse;
          switch (decoder->Take(frame)) {
            case extract::AnswerDecoder::kBroken: return platform::FrameVerdict::kRefuse;
            case extract::AnswerDecoder::kEnd: {
              const size_t index = members[at];
              memory_.RecordSuccess(identities[index]);
              ExtractOutcome& outcome = outcomes[index];
              outcome.status = StatusOf(decoder->end().code);
              if (outcome.status == ContentsStatus::kText && !any_text) outcome.status = ContentsStatus::kNoText;
              outcome.message = decoder->end().message;
              if (++at < members.size()) decoder = std::make_unique<extract::AnswerDecoder>(batch.requests[at]);
              any_text = false;
              return platform::FrameVerdict::kMore;
            }
            case extract::AnswerDecoder::kMore: break;
          }
          if (frame.type != extract::kExtractText) return platform::FrameVerdict::kMore;
          any_text = true;
          return on_text(members[at], frame.payload) ? platform::FrameVerdict::kMore : platform::FrameVerdict::kCancel;
        },
        options_.timeout_ms, &failure, {max_frame, max_bytes}, static_cast<uint32_t>(members.size()), stop);
    if (status == platform::ExchangeStatus::kOk) {
      next += members.size();
      continue;
    }
    // The answers before `at` stand; the one under way is charged; the rest are asked again.
    if (at >= members.size()) break;
    outcomes[members[at]] = Failed(status, failure, decoder->broken(), identities[members[at]]);
    if (status == platform::ExchangeStatus::kStopped) {
      for (size_t k = at + 1; k < members.size(); ++k) outcomes[members[k]].asked = false;
      for (next += members.size(); next < pending.size(); ++next) outcomes[pending[next]].asked = false;
      break;
    }
    next += at + (status == platform::ExchangeStatus::kUnavailable ? 0 : 1);
  }
  return outcomes;
}

}  // namespace trovix::engine
