// Fuzzes the client's reading of a helper's answer: the frames as they come out of the pipe
// (platform::ReadFrame with the decoder's frame limit) and the decoding and caps of each
// (extract::AnswerDecoder). A taken-over helper controls every byte of this. Whatever comes,
// the decoder must stay within the caps of its request, refuse everything after it has
// refused once, and never read past a frame.
//
// Input: one byte choosing the operation and a small or the default text limit, then the
// bytes the helper writes (frames: u32 type, u32 length, payload, little-endian).
#include <fcntl.h>
#include <unistd.h>

#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <string>

#include "platform/extract_protocol.h"
#include "platform/frame_io.h"

namespace {

using namespace trovix;

void Check(bool condition) {
  if (!condition) std::abort();
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  if (size < 1 || size > 60000) return 0;  // a pipe holds what the fuzzer sends at once
  extract::ExtractRequest request;
  request.op = static_cast<extract::ExtractOp>(1 + data[0] % 4);
  if (data[0] & 0x10) request.limits.max_text_bytes = 100;
  if (data[0] & 0x20) request.limits.max_members = 3;

  int pipe_fds[2];
  if (pipe2(pipe_fds, O_CLOEXEC) != 0) return 0;
  fcntl(pipe_fds[1], F_SETPIPE_SZ, 1 << 16);
  const ssize_t written = write(pipe_fds[1], data + 1, size - 1);
  close(pipe_fds[1]);
  if (written != static_cast<ssize_t>(size - 1)) {
    close(pipe_fds[0]);
    return 0;
  }

  extract::AnswerDecoder decoder(request);
  uint64_t bytes = 0;
  for (;;) {
    platform::Frame frame;
    platform::FrameStatus status = platform::ReadFrame(pipe_fds[0], &frame, -1, decoder.max_frame());
    if (status != platform::FrameStatus::kOk) break;
    Check(frame.payload.size() <= decoder.max_frame());
    bytes += frame.payload.size();
    extract::AnswerDecoder::Result result = decoder.Take(frame);
    Check(decoder.text_bytes() <= std::min<uint64_t>(request.limits.max_text_bytes, extract::kMaxTextAnswer));
    if (result == extract::AnswerDecoder::kBroken) {
      Check(!decoder.broken().empty());
      Check(decoder.Take(frame) == extract::AnswerDecoder::kBroken);
      break;
    }
    if (result == extract::AnswerDecoder::kEnd) {
      Check(decoder.ended() && decoder.end().message.size() <= extract::kMaxEndFrame);
      Check(decoder.Take(frame) == extract::AnswerDecoder::kBroken);
      break;
    }
    if (frame.type == extract::kExtractMember) Check(decoder.member().Encode().size() == frame.payload.size());
    if (frame.type == extract::kExtractProperty) decoder.property().Encode();
  }
  close(pipe_fds[0]);
  return 0;
}
