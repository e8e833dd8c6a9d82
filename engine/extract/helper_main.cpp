// trovix-extract: the helper process that reads untrusted documents for the search process.
//
//   trovix-extract --serve                     the pool's mode: request frames on standard
//                                              input, answer frames on standard output
//   trovix-extract text FILE [MEMBER...]       the text of a file (or of a member, nested)
//   trovix-extract list ARCHIVE [MEMBER...]    the members of an archive: d|-, size, path
//   trovix-extract props FILE [MEMBER...]      the document's own properties: name, value
//   trovix-extract --sandbox                   enters the sandbox and reports what holds
//
// In --serve mode nothing but frames may reach standard output: the real output descriptor is
// kept aside and descriptor 1 is pointed at standard error before any library runs, so a
// library that prints cannot corrupt the stream.
#include <signal.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>
#include <vector>

#include "platform/extract_protocol.h"
#include "engine/extract/request_runner.h"
#include "platform/frame_io.h"
#include "platform/sandbox.h"

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

// Reads a pending frame from the client when one waits. A cancel (or anything else, since a
// client sends nothing else mid-exchange, or the end of input) means stop.
class CancelWatch {
 public:
  bool Cancelled() {
    if (cancelled_) return true;
    if (!platform::InputPending(0)) return false;
    platform::Frame frame;
    if (platform::ReadFrame(0, &frame, -1) != platform::FrameStatus::kOk) closed_ = true;
    cancelled_ = true;
    return true;
  }
  bool closed() const { return closed_; }

 private:
  bool cancelled_ = false;
  bool closed_ = false;
};

// A reader that crashes or hangs on one document, on demand: TROVIX_EXTRACT_FAULT set to
// "crash:TEXT" or "hang:TEXT" (several joined by ",") makes the helper die of SIGKILL, or sleep
// for ever, on every request whose path holds TEXT. It exists for the tests that prove such a
// document costs only itself; nothing sets it otherwise.
void InjectFault(const ExtractRequest& request) {
  static const std::string faults = [] {
    const char* set = getenv("TROVIX_EXTRACT_FAULT");
    return std::string(set ? set : "");
  }();
  size_t start = 0;
  while (start < faults.size()) {
    size_t end = faults.find(',', start);
    if (end == std::string::npos) end = faults.size();
    const std::string fault = faults.substr(start, end - start);
    start = end + 1;
    const size_t colon = fault.find(':');
    if (colon == std::string::npos || request.path.find(fault.substr(colon + 1)) == std::string::npos) continue;
    if (fault.compare(0, colon, "crash") == 0) raise(SIGKILL);
    if (fault.compare(0, colon, "hang") == 0)
      for (;;) pause();
  }
}

bool SendEnd(int out, const ExtractEnd& end) {
  return platform::WriteFrame(out, extract::kExtractEnd, end.Encode()) == platform::FrameStatus::kOk;
}

int Serve() {
  int out = dup(1);
  if (out < 0 || dup2(2, 1) < 0) return 1;
  // The sandbox comes before the first request. A kernel without Landlock is common and not
  // worth a line per helper; a refused seccomp filter is said on standard error (the layers
  // that were granted still hold). `trovix-extract --sandbox` tells the whole story.
  if (platform::SandboxReport report = platform::EnterSandbox(); !report.seccomp || !report.no_new_privs)
    fprintf(stderr, "trovix-extract: sandbox: %s\n", report.Describe().c_str());
  for (;;) {
    platform::Frame frame;
    platform::FrameStatus status = platform::ReadFrame(0, &frame, -1);
    if (status == platform::FrameStatus::kClosed) return 0;
    if (status != platform::FrameStatus::kOk) return 1;
    if (frame.type == platform::kFrameCancel) continue;  // came after its request ended
    ExtractRequest request;
    if (frame.type != extract::kExtractRequest || !request.Decode(frame.payload)) {
      if (!SendEnd(out, {extract::kEndBadRequest, "bad request"})) return 1;
      continue;
    }
    InjectFault(request);
    CancelWatch watch;
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
    if (!SendEnd(out, end)) return 1;
    if (watch.closed()) return 0;
  }
}

ExtractRequest OneShotRequest(extract::ExtractOp op, int argc, char** argv) {
  ExtractRequest request;
  request.op = op;
  request.path = argv[2];
  for (int i = 3; i < argc; ++i) request.members.push_back(argv[i]);
  return request;
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
  RequestOutput output;
  output.text = [&any](std::string_view piece) {
    any = true;
    return fwrite(piece.data(), 1, piece.size(), stdout) == piece.size();
  };
  ExtractEnd end = extract::RunRequest(OneShotRequest(extract::kOpText, argc, argv), output);
  fflush(stdout);
  return ExitCodeOf(end, any);
}

int PrintList(int argc, char** argv) {
  bool any = false;
  RequestOutput output;
  output.member = [&any](const ArchiveMember& m) {
    any = true;
    printf("%s\t%llu\t%s\n", m.is_dir ? "d" : "-", static_cast<unsigned long long>(m.size), m.path.c_str());
    return true;
  };
  ExtractEnd end = extract::RunRequest(OneShotRequest(extract::kOpList, argc, argv), output);
  fflush(stdout);
  return ExitCodeOf(end, any);
}

// One line per property: the name, a tab, the value as the helper sent it (lists joined by
// "; ", times as 100 ns ticks since 1601).
int PrintProps(int argc, char** argv) {
  bool any = false;
  RequestOutput output;
  output.property = [&any](const extract::ExtractedProperty& p) {
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
    return true;
  };
  ExtractEnd end = extract::RunRequest(OneShotRequest(extract::kOpProps, argc, argv), output);
  fflush(stdout);
  if (end.code == extract::kEndOk && !any) return 1;
  return ExitCodeOf(end, any);
}

int ReportSandbox() {
  printf("%s\n", platform::EnterSandbox().Describe().c_str());
  return 0;
}

}  // namespace

int main(int argc, char** argv) {
  // A client that goes away must end a write with an error, not kill the helper mid-answer.
  signal(SIGPIPE, SIG_IGN);
  if (argc == 2 && strcmp(argv[1], "--serve") == 0) return Serve();
  if (argc == 2 && strcmp(argv[1], "--sandbox") == 0) return ReportSandbox();
  if (argc >= 3 && strcmp(argv[1], "text") == 0) return PrintText(argc, argv);
  if (argc >= 3 && strcmp(argv[1], "list") == 0) return PrintList(argc, argv);
  if (argc >= 3 && strcmp(argv[1], "props") == 0) return PrintProps(argc, argv);
  return Usage();
}
