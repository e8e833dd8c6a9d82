// trovix-extract: the helper process that reads untrusted documents for the search process.
//
//   trovix-extract --serve                     the pool's mode: request frames on standard
//                                              input, answer frames on standard output
//   trovix-extract text FILE [MEMBER...]       the text of a file (or of a member, nested)
//   trovix-extract list ARCHIVE [MEMBER...]    the members of an archive: d|-, size, path
//   trovix-extract props FILE [MEMBER...]      the document's own properties: name, value
//   trovix-extract --sandbox                   what holds in a helper's sandbox, layer by layer
//
// Documents are read only in --serve mode, inside the sandbox (platform/sandbox.h). The other
// commands start the program itself in --serve mode through a pool of one helper, exactly as
// the search process does (same pipes, session, environment, limits and answer caps), and
// print what it answers: a document never meets this process's terminal.
//
// In --serve mode nothing but frames may reach standard output: the real output descriptor is
// kept aside and descriptor 1 is pointed at standard error before any library runs, so a
// library that prints cannot corrupt the stream.
#include <limits.h>
#include <signal.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>
#include <vector>

#include "extract/request_runner.h"
#include "platform/extract_protocol.h"
#include "platform/frame_io.h"
#include "platform/helper_serve.h"
#include "platform/process_pool.h"
#include "platform/sandbox.h"
#if defined(TROVIX_EXTRACT_TESTING)
#include "tests/extract/sandbox_probe.h"
#endif

extern char** environ;

namespace {

using trovix::extract::ArchiveMember;
using trovix::extract::ExtractEnd;
using trovix::extract::ExtractRequest;
using trovix::extract::RequestOutput;
namespace platform = trovix::platform;
namespace extract = trovix::extract;

int Usage() {
  fprintf(stderr,
          "usage: trovix-extract --serve\n"
          "       trovix-extract text FILE [MEMBER...]\n"
          "       trovix-extract list ARCHIVE [MEMBER...]\n"
          "       trovix-extract props FILE [MEMBER...]\n"
          "       trovix-extract --sandbox\n");
  return 2;
}

// Reads a pending frame from the client when one waits. A cancel for this request (or
// anything else, since a client sends nothing else mid-exchange, or the end of input) means
// stop; a cancel for an earlier request of the batch came after that one ended.
class CancelWatch {
 public:
  explicit CancelWatch(uint32_t index = 0) : index_(index) {}
  bool Cancelled() {
    while (!cancelled_ && platform::InputPending(0)) {
      platform::Frame frame;
      if (platform::ReadFrame(0, &frame, -1) != platform::FrameStatus::kOk) closed_ = true;
      cancelled_ = closed_ || frame.type != platform::kFrameCancel || extract::CancelStops(frame.payload, index_);
    }
    return cancelled_;
  }
  bool closed() const { return closed_; }

 private:
  uint32_t index_;
  bool cancelled_ = false;
  bool closed_ = false;
};

bool SendEnd(int out, const ExtractEnd& end) {
  return platform::WriteFrame(out, extract::kExtractEnd, end.Encode()) == platform::FrameStatus::kOk;
}

#if defined(TROVIX_EXTRACT_TESTING)
// The test build only: a helper that ignores every limit, as a taken-over one would. A path
// "flood:KIND COUNT SIZE" answers COUNT frames of SIZE bytes (KIND: text, member, property or
// a frame type number), then an end frame.
void Flood(int out, const std::string& spec) {
  char kind[32] = "";
  unsigned long count = 0, size = 0;
  if (sscanf(spec.c_str(), "%31s %lu %lu", kind, &count, &size) != 3) return;
  uint32_t type = extract::kExtractText;
  std::string payload(size, 'x');
  if (strcmp(kind, "member") == 0) {
    type = extract::kExtractMember;
    ArchiveMember m;
    m.path = std::string(size, 'm');
    payload = m.Encode();
  } else if (strcmp(kind, "property") == 0) {
    type = extract::kExtractProperty;
    payload = extract::ExtractedProperty::Text("System.Comment", std::string(size, 'p')).Encode();
  } else if (strcmp(kind, "text") != 0) {
    type = static_cast<uint32_t>(strtoul(kind, nullptr, 10));
  }
  for (unsigned long i = 0; i < count; ++i)
    if (platform::WriteFrame(out, type, payload) != platform::FrameStatus::kOk) return;
  SendEnd(out, {extract::kEndOk, ""});
}

// A reader that crashes or hangs on one document, for the tests that
// prove such a document costs only itself. A path holding "poison-crash" dies of SIGKILL, one
// holding "poison-hang" sleeps for ever.
void InjectFault(const ExtractRequest& request) {
  if (request.path.find("poison-crash") != std::string::npos) raise(SIGKILL);
  if (request.path.find("poison-hang") != std::string::npos)
    for (;;) pause();
}
#endif

// What the process was given, seen from inside before the sandbox closes (getsid is not on
// its allow-list): terminals among its descriptors, its session, its environment's names.
std::string StartFacts() {
  std::string terminals;
  for (int fd = 0; fd < 3; ++fd)
    if (isatty(fd)) terminals += (terminals.empty() ? "" : " ") + std::to_string(fd);
  std::string names;
  for (char** e = environ; e && *e; ++e) {
    const char* eq = strchr(*e, '=');
    names += (names.empty() ? "" : " ") + std::string(*e, eq ? static_cast<size_t>(eq - *e) : strlen(*e));
  }
  return "terminal descriptors: " + (terminals.empty() ? std::string("none") : terminals) + "\n" +
         "session: " + (getsid(0) == getpid() ? "its own" : "shared with its parent") + "\n" +
         "environment: " + (names.empty() ? std::string("empty") : names) + "\n";
}

// Answers one request (the `index`th of its batch): its frames, then its end. False when the
// answer could not be written; *closed when the client went away meanwhile.
bool Answer(int out, const ExtractRequest& request, uint32_t index, bool* closed) {
#if defined(TROVIX_EXTRACT_TESTING)
  InjectFault(request);
  if (request.path.rfind("flood:", 0) == 0) {
    Flood(out, request.path.substr(6));
    return true;
  }
  if (request.path.rfind("probe:", 0) == 0) {
    const std::string seen = trovix::testing::RunProbe(request.path.substr(6));
    if (platform::WriteFrame(out, extract::kExtractText, seen) != platform::FrameStatus::kOk) return false;
    return SendEnd(out, {extract::kEndOk, ""});
  }
#endif
  CancelWatch watch(index);
  RequestOutput output;
  output.text = [out](std::string_view piece) {
    return platform::WriteFrame(out, extract::kExtractText, piece) == platform::FrameStatus::kOk;
  };
  output.member = [out](const ArchiveMember& m) {
    return platform::WriteFrame(out, extract::kExtractMember, m.Encode()) == platform::FrameStatus::kOk;
  };
  output.property = [out](const extract::ExtractedProperty& p) {
    return platform::WriteFrame(out, extract::kExtractProperty, p.Encode()) == platform::FrameStatus::kOk;
  };
  output.cancelled = [&watch] { return watch.Cancelled(); };
  ExtractEnd end = extract::RunRequest(request, output);
  *closed = watch.closed();
  return SendEnd(out, end);
}

// One request frame: a batch, a single request or the sandbox report.
platform::ServeStep Dispatch(int out, const platform::Frame& frame,
                             const std::string& sandbox_text) {
  bool closed = false;
  if (frame.type == extract::kExtractBatch) {
    extract::ExtractBatch batch;
    if (!batch.Decode(frame.payload))
      return platform::StepOf(SendEnd(out, {extract::kEndBadRequest, "bad request"}));
    for (uint32_t i = 0; i < batch.requests.size() && !closed; ++i)
      if (!Answer(out, batch.requests[i], i, &closed)) return platform::ServeStep::kBroken;
    return closed ? platform::ServeStep::kDone : platform::ServeStep::kNext;
  }
  ExtractRequest request;
  if (frame.type != extract::kExtractRequest || !request.Decode(frame.payload))
    return platform::StepOf(SendEnd(out, {extract::kEndBadRequest, "bad request"}));
  if (request.op == extract::kOpSandbox) {
    if (platform::WriteFrame(out, extract::kExtractText, sandbox_text) !=
        platform::FrameStatus::kOk)
      return platform::ServeStep::kBroken;
    return platform::StepOf(SendEnd(out, {extract::kEndOk, ""}));
  }
  if (!Answer(out, request, 0, &closed)) return platform::ServeStep::kBroken;
  return closed ? platform::ServeStep::kDone : platform::ServeStep::kNext;
}

int Serve(const platform::SandboxOptions& options) {
  std::string facts;
  platform::ServeLoop loop;
  loop.program = "trovix-extract";
  loop.sandbox = options;
  loop.before_sandbox = [&facts] { facts = StartFacts(); };
  loop.start = [&facts](const platform::SandboxReport& report) -> platform::ServeDispatch {
    return [text = report.Layers() + facts](int out, const platform::Frame& frame) {
      return Dispatch(out, frame, text);
    };
  };
  return platform::ServeFrames(loop);
}

ExtractRequest OneShotRequest(extract::ExtractOp op, int argc, char** argv) {
  ExtractRequest request;
  request.op = op;
  request.path = argv[2];
  for (int i = 3; i < argc; ++i) request.members.push_back(argv[i]);
  return request;
}

// A person waits for a one-shot command: a document gets longer than in a search, and the
// user can interrupt it.
constexpr int64_t kOneShotTimeoutMs = 60'000;

// Runs one request in a helper started as the pool starts them, handing each answer frame
// (checked against the caps) to `on_answer`. Returns the end, or a failure as kEndUnreadable.
ExtractEnd RunInHelper(const ExtractRequest& request,
                       const std::function<void(const platform::Frame&, extract::AnswerDecoder&)>& on_answer) {
  std::unique_ptr<platform::ProcessPool> pool = platform::OneHelperPool({"--serve"});
  if (!pool) return {extract::kEndUnreadable, "the reader failed (this program cannot be found)"};
  extract::AnswerDecoder decoder(request);
  platform::ExchangeFailure failure;
  platform::ExchangeStatus status =
      pool->Exchange(extract::kExtractRequest, request.Encode(), extract::kExtractEnd,
                     [&](const platform::Frame& frame) {
                       extract::AnswerDecoder::Result result = decoder.Take(frame);
                       if (result == extract::AnswerDecoder::kBroken)
                         return platform::FrameVerdict::kRefuse;
                       if (result == extract::AnswerDecoder::kMore) on_answer(frame, decoder);
                       return platform::FrameVerdict::kMore;
                     },
                     kOneShotTimeoutMs, &failure, {decoder.max_frame(), decoder.max_bytes()});
  switch (status) {
    case platform::ExchangeStatus::kOk: return decoder.end();
    case platform::ExchangeStatus::kTimedOut: return {extract::kEndUnreadable, "the reader took too long and was stopped"};
    case platform::ExchangeStatus::kRefused:
      return {extract::kEndUnreadable, "the reader's answer was refused (" +
                                           (decoder.broken().empty() ? failure.what : decoder.broken()) + ")"};
    case platform::ExchangeStatus::kUnavailable:
    case platform::ExchangeStatus::kCrashed:
    case platform::ExchangeStatus::kStopped: break;
  }
  return {extract::kEndUnreadable, "the reader failed (" + failure.what + ")"};
}

// Exit codes: 0 text (or members) came, 1 no text, 2 an error (its message on stderr).
int ExitCodeOf(const ExtractEnd& end, bool any_output) {
  if (end.code == extract::kEndOk) return 0;
  if (end.code != extract::kEndNoText) fprintf(stderr, "trovix-extract: %s\n", end.message.c_str());
  if (end.code == extract::kEndLimit && any_output) return 0;
  return end.code == extract::kEndNoText ? 1 : 2;
}

int PrintText(int argc, char** argv) {
  bool any = false;
  ExtractEnd end = RunInHelper(OneShotRequest(extract::kOpText, argc, argv),
                               [&any](const platform::Frame& frame, extract::AnswerDecoder&) {
                                 any = true;
                                 fwrite(frame.payload.data(), 1, frame.payload.size(), stdout);
                               });
  fflush(stdout);
  return ExitCodeOf(end, any);
}

int PrintList(int argc, char** argv) {
  bool any = false;
  ExtractEnd end = RunInHelper(OneShotRequest(extract::kOpList, argc, argv),
                               [&any](const platform::Frame&, extract::AnswerDecoder& decoder) {
                                 const ArchiveMember& m = decoder.member();
                                 any = true;
                                 printf("%s\t%llu\t%s\n", m.is_dir ? "d" : "-",
                                        static_cast<unsigned long long>(m.size), m.path.c_str());
                               });
  fflush(stdout);
  return ExitCodeOf(end, any);
}

// One line per property: the name, a tab, the value as the helper sent it (lists joined by
// "; ", times as 100 ns ticks since 1601).
int PrintProps(int argc, char** argv) {
  bool any = false;
  ExtractEnd end = RunInHelper(OneShotRequest(extract::kOpProps, argc, argv),
                               [&any](const platform::Frame&, extract::AnswerDecoder& decoder) {
                                 const extract::ExtractedProperty& p = decoder.property();
                                 any = true;
                                 std::string value;
                                 if (!p.texts.empty()) {
                                   for (const std::string& t : p.texts) value += (value.empty() ? "" : "; ") + t;
                                 } else if (!p.reals.empty()) {
                                   for (double d : p.reals) value += (value.empty() ? "" : "; ") + std::to_string(d);
                                 } else {
                                   value = std::to_string(p.integer);
                                 }
                                 printf("%s\t%s\n", p.name.c_str(), value.c_str());
                               });
  fflush(stdout);
  if (end.code == extract::kEndOk && !any) return 1;
  return ExitCodeOf(end, any);
}

// What holds in a helper, told by a helper started as the pool starts them.
int ReportSandbox() {
  ExtractRequest request;
  request.op = extract::kOpSandbox;
  std::string text;
  ExtractEnd end = RunInHelper(request, [&text](const platform::Frame& frame, extract::AnswerDecoder&) {
    text += frame.payload;
  });
  fputs(text.c_str(), stdout);
  fflush(stdout);
  if (end.code != extract::kEndOk) {
    fprintf(stderr, "trovix-extract: %s\n", end.message.c_str());
    return 2;
  }
  return 0;
}

}  // namespace

int main(int argc, char** argv) {
  // A client that goes away must end a write with an error, not kill the helper mid-answer.
  signal(SIGPIPE, SIG_IGN);
  if (argc == 2 && strcmp(argv[1], "--serve") == 0) return Serve({});
#if defined(TROVIX_EXTRACT_TESTING)
  // The test build only: the seccomp filter on its own, as on a kernel without Landlock.
  if (argc == 3 && strcmp(argv[1], "--serve") == 0 && strcmp(argv[2], "--no-landlock") == 0)
    return Serve({.landlock = false});
#endif
  if (argc == 2 && strcmp(argv[1], "--sandbox") == 0) return ReportSandbox();
  if (argc >= 3 && strcmp(argv[1], "text") == 0) return PrintText(argc, argv);
  if (argc >= 3 && strcmp(argv[1], "list") == 0) return PrintList(argc, argv);
  if (argc >= 3 && strcmp(argv[1], "props") == 0) return PrintProps(argc, argv);
  return Usage();
}
