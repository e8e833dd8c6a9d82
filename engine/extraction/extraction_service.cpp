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
                                       const props::TextPieceSink& on_text) {
  return Run(request, identity, {&on_text, nullptr, nullptr});
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
                                      const Answers& answers) {
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
      options_.timeout_ms, &failure, {decoder.max_frame(), decoder.max_bytes()});
  const bool ended = decoder.ended();
  const extract::ExtractEnd& end = decoder.end();

  switch (status) {
    case platform::ExchangeStatus::kOk:
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
    case platform::ExchangeStatus::kUnavailable: {
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
    case platform::ExchangeStatus::kTimedOut:
    case platform::ExchangeStatus::kCrashed:
    case platform::ExchangeStatus::kRefused:
      memory_.RecordFailure(identity);
      outcome.status = ContentsStatus::kFailed;
      outcome.helper_failed = true;
      if (status == platform::ExchangeStatus::kTimedOut)
        outcome.message = "the reader took too long and was stopped";
      else if (status == platform::ExchangeStatus::kRefused)
        outcome.message = "the reader's answer was refused and the reader stopped (" +
                          (decoder.broken().empty() ? failure.what : decoder.broken()) + ")";
      else
        outcome.message = "the reader crashed (" + failure.what + ")";
      return outcome;
  }
  return outcome;
}

}  // namespace trovix::engine
