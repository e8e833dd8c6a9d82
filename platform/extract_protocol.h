// The extraction protocol: what the search process asks of `trovix-extract` and what comes
// back, as frames (platform/frame_io.h) over the helper's pipes (platform/process_pool.h).
//
// Request (kExtractRequest): ExtractRequest::Encode().
// Answers, in this order:
//   kExtractText    zero or more: a piece of the document's text, UTF-8, in reading order;
//   kExtractMember  zero or more (kOpList only): one archive member, ArchiveMember::Encode();
//   kExtractEnd     exactly one, last: ExtractEnd::Encode().
// A cancel frame from the client (platform::kFrameCancel) makes the helper stop producing and
// send kExtractEnd soon after.
//
// Batch (kExtractBatch): ExtractBatch::Encode(), up to kMaxBatchRequests requests of files
// read one after another; the answers are those of each request in turn, each ended by its own
// kExtractEnd. Every cap below holds per request, as does the client's deadline. A cancel
// frame names the request it stops (its index, CancelPayload); the helper passes over one
// that names a request already ended. A helper that dies mid-batch has ended the requests
// before the one it was reading: that one alone is charged with the crash, and the client asks
// for the rest again.
//
// The helper enforces the output limits itself (it stops and ends with kEndLimit, keeping what
// it sent). The client enforces the deadline and the answer caps below (AnswerDecoder): a
// helper that sends more than its request can bring, a frame of a type the request does not
// answer, or a frame that does not decode, is broken or taken over, and is killed.
//
// The answer caps, one place for both ends (the helper keeps to them, the client checks):
//   text        at most the request's max_text_bytes, never above 64 MiB (the biggest figure a
//               caller can use: the search reads 10 MB of text per document by default, the
//               indexer less), in frames of at most 1 MiB (the helper sends 64 KiB pieces);
//   members     at most the request's max_members (never above 100,000), 64 KiB per member
//               (a path longer than that is a hostile archive), 64 MiB in all;
//   properties  at most 4,096, 1 MiB each (a long comment or lyrics), 16 MiB in all;
//   the end     one frame, its message at most 4 KiB.
#pragma once

#include <algorithm>
#include <cstdint>
#include <cstring>
#include <string>
#include <string_view>
#include <vector>

#include "base/file_name.h"
#include "platform/frame_io.h"

namespace trovix::extract {

inline constexpr uint32_t kExtractRequest = 16;
inline constexpr uint32_t kExtractText = 17;
inline constexpr uint32_t kExtractMember = 18;
inline constexpr uint32_t kExtractEnd = 19;
inline constexpr uint32_t kExtractProperty = 20;
inline constexpr uint32_t kExtractBatch = 21;
inline constexpr uint32_t kMaxBatchRequests = 32;

// The answer caps (see above).
inline constexpr uint64_t kMaxTextAnswer = 64ull << 20;
inline constexpr uint32_t kMaxTextFrame = 1u << 20;
inline constexpr uint32_t kMaxMembersAnswer = 100'000;
inline constexpr uint32_t kMaxMemberFrame = 64u << 10;
inline constexpr uint64_t kMaxMemberBytes = 64ull << 20;
inline constexpr uint32_t kMaxProperties = 4096;
inline constexpr uint32_t kMaxPropertyFrame = 1u << 20;
inline constexpr uint64_t kMaxPropertyBytes = 16ull << 20;
inline constexpr size_t kMaxEndMessage = 4096;
inline constexpr uint32_t kMaxEndFrame = 64u << 10;

enum ExtractOp : uint8_t {
  kOpText = 1,  // the document's text
  kOpList = 2,  // the members of an archive (the last container of the chain)
  kOpProps = 3, // the document's own properties (title, author, pages, camera, artist ...)
  kOpSandbox = 4,  // what holds in the helper's sandbox, as text (path and limits unused)
};

// The limits every request carries, so that the settings of the search process decide them.
struct ExtractLimits {
  uint64_t max_text_bytes = 10'000'000;         // text sent at most
  uint32_t max_chars_per_byte = 100;            // past the first MB of text: text <= 100 x input
  uint64_t max_member_bytes = 3'145'728;        // nMaxStreamExtractSize; 0 = members are not read
  uint32_t max_depth = 5;                       // archives inside archives
  uint32_t max_members = 10'000;                // members listed or passed over per archive
  uint64_t max_expanded_bytes = 1'000'000'000;  // bytes decompressed per request
};

struct ExtractRequest {
  ExtractOp op = kOpText;
  std::string path;                  // the file in the file system (raw bytes)
  std::vector<std::string> members;  // member path inside `path`, then inside that member, ...
  ExtractLimits limits;

  std::string Encode() const;
  bool Decode(const std::string& payload);
};

struct ExtractBatch {
  std::vector<ExtractRequest> requests;

  std::string Encode() const;
  bool Decode(const std::string& payload);
};

// The payload of a cancel frame for the request of index `index` in its batch (0 for a single
// request), and its reading back: an empty payload (a client that names none) stops the one
// being read.
inline std::string CancelPayload(uint32_t index) { return platform::FrameWriter().U32(index).Take(); }
inline bool CancelStops(std::string_view payload, uint32_t index) {
  if (payload.empty()) return true;
  platform::FrameReader r(payload);
  const uint32_t named = r.U32();
  return r.failed() || named >= index;
}

struct ArchiveMember {
  std::string path;       // inside the archive, "/"-separated, UTF-8 (decoded as the archive says)
  uint64_t size = 0;      // uncompressed
  int64_t mtime_sec = 0;  // Unix time; 0 when the archive has none
  uint32_t mtime_nsec = 0;
  bool is_dir = false;
  bool encrypted = false;

  std::string Encode() const;
  bool Decode(const std::string& payload);
};

// One property a metadata reader found, under its canonical System.* name. Values travel in
// a few plain types; the search process turns them into its own typed values.
struct ExtractedProperty {
  enum Type : uint8_t {
    kText = 1,      // texts[0]
    kTextList = 2,  // texts (authors, keywords, artists)
    kInteger = 3,   // integer
    kUnsigned = 4,  // integer, read as unsigned
    kReal = 5,      // reals[0]
    kRealList = 6,  // reals (degrees, minutes, seconds)
    kTime = 7,      // integer: 100 ns ticks since 1601 (UTC)
    kFlag = 8,      // integer: 0 or 1
  };
  std::string name;
  Type type = kText;
  std::vector<std::string> texts;
  std::vector<double> reals;
  int64_t integer = 0;

  static ExtractedProperty Text(std::string name, std::string text) {
    return {std::move(name), kText, {std::move(text)}, {}, 0};
  }
  static ExtractedProperty Texts(std::string name, std::vector<std::string> texts) {
    return {std::move(name), kTextList, std::move(texts), {}, 0};
  }
  static ExtractedProperty Number(std::string name, int64_t value, Type type = kInteger) {
    return {std::move(name), type, {}, {}, value};
  }
  static ExtractedProperty Real(std::string name, double value) { return {std::move(name), kReal, {}, {value}, 0}; }
  static ExtractedProperty Reals(std::string name, std::vector<double> values) {
    return {std::move(name), kRealList, {}, std::move(values), 0};
  }

  std::string Encode() const;
  bool Decode(const std::string& payload);
};

enum ExtractCode : uint32_t {
  kEndOk = 0,          // all text (or all members) sent
  kEndNoText = 1,      // the document holds no text
  kEndNoReader = 2,    // no reader for this type ("no reader for .xyz")
  kEndEncrypted = 3,   // the document or member is encrypted ("encrypted")
  kEndUnreadable = 4,  // cannot be opened, or malformed beyond reading
  kEndLimit = 5,       // a limit was reached; what was sent stands
  kEndTooLarge = 6,    // a member above max_member_bytes (or member reading off)
  kEndCancelled = 7,   // the client asked to stop
  kEndBadRequest = 8,  // the request did not decode
};

struct ExtractEnd {
  ExtractCode code = kEndOk;
  std::string message;  // for the user: "no reader for .xyz", "encrypted", ...

  std::string Encode() const;
  bool Decode(const std::string& payload);
};

// Lower-case extension of the last element of a request (member name, else path), "" if none.
std::string RequestExtension(const ExtractRequest& request);

// The codec lives here, inline, because both the search process and the helper use it and
// neither links the other's library.

inline std::string ExtractRequest::Encode() const {
  platform::FrameWriter w;
  w.U8(op).Bytes(path).U32(static_cast<uint32_t>(members.size()));
  for (const std::string& m : members) w.Bytes(m);
  // The request never asks for more than a client accepts (the answer caps above).
  w.U64(std::min(limits.max_text_bytes, kMaxTextAnswer)).U32(limits.max_chars_per_byte).U64(limits.max_member_bytes);
  w.U32(limits.max_depth).U32(std::min(limits.max_members, kMaxMembersAnswer)).U64(limits.max_expanded_bytes);
  return w.Take();
}

inline bool ExtractRequest::Decode(const std::string& payload) {
  platform::FrameReader r(payload);
  uint8_t o = r.U8();
  if (o < kOpText || o > kOpSandbox) return false;
  op = static_cast<ExtractOp>(o);
  path = r.Bytes();
  uint32_t n = r.U32();
  if (r.failed() || n > 64) return false;
  members.clear();
  for (uint32_t i = 0; i < n; ++i) members.push_back(r.Bytes());
  limits.max_text_bytes = r.U64();
  limits.max_chars_per_byte = r.U32();
  limits.max_member_bytes = r.U64();
  limits.max_depth = r.U32();
  limits.max_members = r.U32();
  limits.max_expanded_bytes = r.U64();
  return !r.failed() && r.at_end();
}

inline std::string ExtractBatch::Encode() const {
  platform::FrameWriter w;
  w.U32(static_cast<uint32_t>(std::min<size_t>(requests.size(), kMaxBatchRequests)));
  for (size_t i = 0; i < requests.size() && i < kMaxBatchRequests; ++i) w.Bytes(requests[i].Encode());
  return w.Take();
}

inline bool ExtractBatch::Decode(const std::string& payload) {
  platform::FrameReader r(payload);
  const uint32_t n = r.U32();
  if (r.failed() || n == 0 || n > kMaxBatchRequests) return false;
  requests.assign(n, {});
  for (uint32_t i = 0; i < n; ++i)
    if (!requests[i].Decode(r.Bytes()) || r.failed() || requests[i].op == kOpSandbox) return false;
  return r.at_end();
}

inline std::string ArchiveMember::Encode() const {
  platform::FrameWriter w;
  w.Bytes(path).U64(size).I64(mtime_sec).U32(mtime_nsec).U8(is_dir ? 1 : 0).U8(encrypted ? 1 : 0);
  return w.Take();
}

inline bool ArchiveMember::Decode(const std::string& payload) {
  platform::FrameReader r(payload);
  path = r.Bytes();
  size = r.U64();
  mtime_sec = r.I64();
  mtime_nsec = r.U32();
  is_dir = r.U8() != 0;
  encrypted = r.U8() != 0;
  return !r.failed() && r.at_end();
}

inline std::string ExtractedProperty::Encode() const {
  platform::FrameWriter w;
  w.Bytes(name).U8(type).I64(integer).U32(static_cast<uint32_t>(texts.size()));
  for (const std::string& t : texts) w.Bytes(t);
  w.U32(static_cast<uint32_t>(reals.size()));
  for (double d : reals) {
    uint64_t bits;
    static_assert(sizeof bits == sizeof d);
    std::memcpy(&bits, &d, sizeof bits);
    w.U64(bits);
  }
  return w.Take();
}

inline bool ExtractedProperty::Decode(const std::string& payload) {
  platform::FrameReader r(payload);
  name = r.Bytes();
  const uint8_t t = r.U8();
  if (t < kText || t > kFlag) return false;
  type = static_cast<Type>(t);
  integer = r.I64();
  uint32_t n = r.U32();
  if (r.failed() || n > payload.size()) return false;
  texts.clear();
  for (uint32_t i = 0; i < n && !r.failed(); ++i) texts.push_back(r.Bytes());
  n = r.U32();
  if (r.failed() || n > payload.size() / 8) return false;
  reals.clear();
  for (uint32_t i = 0; i < n; ++i) {
    uint64_t bits = r.U64();
    double d;
    std::memcpy(&d, &bits, sizeof d);
    reals.push_back(d);
  }
  if (r.failed() || !r.at_end()) return false;
  // A value must have what its type reads.
  if ((type == kText && texts.size() != 1) || (type == kReal && reals.size() != 1)) return false;
  return true;
}

inline std::string ExtractEnd::Encode() const {
  platform::FrameWriter w;
  w.U32(code).Bytes(std::string_view(message).substr(0, kMaxEndMessage));
  return w.Take();
}

inline bool ExtractEnd::Decode(const std::string& payload) {
  platform::FrameReader r(payload);
  code = static_cast<ExtractCode>(r.U32());
  message = r.Bytes();
  return !r.failed() && r.at_end();
}

// The client's side of one answer: every frame the helper sends goes through Take, which
// checks it against the caps of its request and decodes it. kBroken means the helper is
// broken or hostile: the client kills it and keeps nothing more of the answer.
class AnswerDecoder {
 public:
  enum Result { kMore, kEnd, kBroken };

  explicit AnswerDecoder(const ExtractRequest& request)
      : op_(request.op),
        text_cap_(std::min(request.limits.max_text_bytes, kMaxTextAnswer)),
        member_cap_(std::min(request.limits.max_members, kMaxMembersAnswer)) {}

  // The largest payload the next frame may have, and every payload together: the pool refuses
  // a frame above these before it reads it.
  uint32_t max_frame() const {
    switch (op_) {
      case kOpList: return kMaxMemberFrame;
      case kOpProps: return kMaxPropertyFrame;
      default: return kMaxTextFrame;
    }
  }
  uint64_t max_bytes() const {
    switch (op_) {
      case kOpList: return kMaxMemberBytes + kMaxEndFrame;
      case kOpProps: return kMaxPropertyBytes + kMaxEndFrame;
      default: return text_cap_ + kMaxEndFrame;
    }
  }

  // Decodes one frame into text(), member(), property() or end(), whichever its type fills.
  Result Take(const platform::Frame& frame) {
    if (broken_ || ended_) return Broken("a frame after the end");
    const std::string& payload = frame.payload;
    switch (frame.type) {
      case kExtractText:
        // The helper never sends an empty piece; empty frames would cost the client for free.
        if ((op_ != kOpText && op_ != kOpSandbox) || payload.empty() || payload.size() > kMaxTextFrame)
          return Broken("an unexpected text frame");
        if (payload.size() > text_cap_ - text_bytes_) return Broken("more text than the request allows");
        text_bytes_ += payload.size();
        return kMore;
      case kExtractMember:
        if (op_ != kOpList || payload.size() > kMaxMemberFrame) return Broken("an unexpected member frame");
        if (++members_ > member_cap_ || (member_bytes_ += payload.size()) > kMaxMemberBytes)
          return Broken("more members than the request allows");
        if (!member_.Decode(payload)) return Broken("a member that does not decode");
        return kMore;
      case kExtractProperty:
        if (op_ != kOpProps || payload.size() > kMaxPropertyFrame) return Broken("an unexpected property frame");
        if (++properties_ > kMaxProperties || (property_bytes_ += payload.size()) > kMaxPropertyBytes)
          return Broken("more properties than the request allows");
        if (!property_.Decode(payload)) return Broken("a property that does not decode");
        return kMore;
      case kExtractEnd:
        if (payload.size() > kMaxEndFrame || !end_.Decode(payload) || end_.code > kEndBadRequest)
          return Broken("an end that does not decode");
        ended_ = true;
        return kEnd;
      default:
        return Broken("a frame of an unknown type");
    }
  }

  // The payload of the last text frame is the frame's own; these hold the last decoded one.
  const ArchiveMember& member() const { return member_; }
  ArchiveMember& member() { return member_; }
  ExtractedProperty& property() { return property_; }
  const ExtractEnd& end() const { return end_; }
  bool ended() const { return ended_; }
  const std::string& broken() const { return why_; }  // empty while the answer is sound
  uint64_t text_bytes() const { return text_bytes_; }

 private:
  Result Broken(const char* why) {
    broken_ = true;
    if (why_.empty()) why_ = why;
    return kBroken;
  }

  ExtractOp op_;
  uint64_t text_cap_;
  uint32_t member_cap_;
  uint64_t text_bytes_ = 0;
  uint32_t members_ = 0;
  uint64_t member_bytes_ = 0;
  uint32_t properties_ = 0;
  uint64_t property_bytes_ = 0;
  ArchiveMember member_;
  ExtractedProperty property_;
  ExtractEnd end_;
  bool ended_ = false;
  bool broken_ = false;
  std::string why_;
};

inline std::string RequestExtension(const ExtractRequest& request) {
  return LowerExtension(request.members.empty() ? request.path : request.members.back());
}

}  // namespace trovix::extract
