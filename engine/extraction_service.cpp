#include "engine/extraction_service.h"

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
#if defined(TROVIX_SANITIZED)
  // Sanitizers reserve terabytes of address space for their shadow memory: a limit on it
  // would stop the helper before it starts.
  pool.memory_limit = 0;
#else
  pool.memory_limit = options.memory_limit;
#endif
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
  if (const char* set = getenv("TROVIX_EXTRACT"); set && *set) return set;
  char self[PATH_MAX];
  ssize_t n = ::readlink("/proc/self/exe", self, sizeof self - 1);
  if (n <= 0) return "trovix-extract";
  std::string path(self, static_cast<size_t>(n));
  return path.substr(0, path.find_last_of('/') + 1) + "trovix-extract";
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
  extract::ExtractEnd end;
  bool any_text = false;
  bool ended = false;
  bool caller_stopped = false;  // the text sink wanted no more (its reader went away)
  platform::ExchangeFailure failure;
  platform::ExchangeStatus status = pool_.Exchange(
      extract::kExtractRequest, request.Encode(), extract::kExtractEnd,
      [&](const platform::Frame& frame) {
        switch (frame.type) {
          case extract::kExtractText:
            if (frame.payload.empty()) return true;
            any_text = true;
            if (on_text == nullptr || (*on_text)(frame.payload)) return true;
            caller_stopped = true;
            return false;
          case extract::kExtractMember: {
            extract::ArchiveMember member;
            if (members && member.Decode(frame.payload)) members->push_back(std::move(member));
            return true;
          }
          case extract::kExtractProperty: {
            extract::ExtractedProperty property;
            if (answers.properties && property.Decode(frame.payload)) answers.properties->push_back(std::move(property));
            return true;
          }
          case extract::kExtractEnd:
            ended = end.Decode(frame.payload);
            return true;
          default:
            return true;
        }
      },
      options_.timeout_ms, &failure);

  switch (status) {
    case platform::ExchangeStatus::kOk:
      if (!ended && caller_stopped) {
        // Cut short by whoever asked: the answer was whole as far as it was read.
        outcome.status = ContentsStatus::kText;
        return outcome;
      }
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
      memory_.RecordFailure(identity);
      outcome.status = ContentsStatus::kFailed;
      outcome.helper_failed = true;
      outcome.message = status == platform::ExchangeStatus::kTimedOut
                            ? "the reader took too long and was stopped"
                            : "the reader crashed (" + failure.what + ")";
      return outcome;
  }
  return outcome;
}

}  // namespace trovix::engine
