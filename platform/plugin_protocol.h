// The plugin protocol: what the search process asks of `trovix-plugin-host` (the fields of a
// content plugin, one field's value for one file, the text of a full-text field) and what the
// desktop program asks of a host in lister mode (a lister plugin's detect string, its window
// for a file inside the quick view's pane, closing that window), and what comes back, as frames
// (platform/frame_io.h) over the pipes of a helper of the process pool (platform/process_pool.h).
// The host loads plugin libraries only after it entered its sandbox, so a plugin runs with the
// rights a document reader has and no more.
//
// Request (kPluginRequest): PluginRequest::Encode().
// Answers, in this order:
//   kPluginField  zero or more (kOpFields only): one usable field, PluginField::Encode();
//   kPluginValue  at most one (kOpValue only): the value the plugin returned, PluginValue;
//   kPluginText   zero or more (kOpText only): a piece of the full text, UTF-8;
//   kPluginEnd    exactly one, last: PluginEnd::Encode(); the lister operations answer with it
//                 alone.
// A cancel frame from the client (platform::kFrameCancel) stops a full-text read between two
// pieces.
//
// The host hands over the plugin's answer as the plugin typed it (the returned type and the
// value decoded from the buffer, text already in UTF-8); what a returned type means for a
// property is the client's business (props/plugins/plugin_values.h), so the rules live in one
// place whatever the host's build.
//
// The answer caps, one place for both ends (the host keeps to them, the client checks):
//   fields     at most kMaxFields, names at most 80 characters, units at most 2046 bytes of
//              the plugin's text (so at most three times that in UTF-8);
//   a value    one frame: its text comes from a 2,048-byte buffer (UTF-8 of at most 1,024
//              UTF-16 units or 2,048 bytes of the code page);
//   full text  at most the request's max_text_bytes, never above 64 MiB, in pieces of at most
//              64 KiB;
//   the end    one frame, its texts (message, detect string) at most 4 KiB each.
#pragma once

#include <algorithm>
#include <cstdint>
#include <cstring>
#include <functional>
#include <string>
#include <string_view>

#include "platform/frame_io.h"
#include "platform/process_pool.h"

namespace trovix::plugin {

inline constexpr uint32_t kPluginRequest = 48;
inline constexpr uint32_t kPluginField = 49;
inline constexpr uint32_t kPluginValue = 50;
inline constexpr uint32_t kPluginText = 51;
inline constexpr uint32_t kPluginEnd = 52;

// The published interface's numbers.
inline constexpr int kMaxNameLength = 2046;   // the maxlen given to ContentGetSupportedField
inline constexpr int kValueBufferBytes = 2048;  // the value buffer given to ContentGetValue
inline constexpr size_t kMaxFieldName = 80;   // characters of a field's canonical name

// Field and value types of the published interface.
enum FieldType : int32_t {
  kFtNoMoreFields = 0,
  kFtNumeric32 = 1,
  kFtNumeric64 = 2,
  kFtNumericFloating = 3,
  kFtDate = 4,
  kFtTime = 5,
  kFtBoolean = 6,
  kFtMultipleChoice = 7,
  kFtString = 8,
  kFtFullText = 9,
  kFtDateTime = 10,
  kFtStringW = 11,
  kFtFullTextW = 12,
  // Results below 1.
  kFtNoSuchField = -1,
  kFtFileError = -2,
  kFtFieldEmpty = -3,
};

inline constexpr uint32_t kMaxFields = 4096;
inline constexpr uint32_t kMaxFieldFrame = 64u << 10;
inline constexpr uint32_t kMaxValueFrame = 16u << 10;
inline constexpr uint64_t kMaxTextAnswer = 64ull << 20;
inline constexpr uint32_t kMaxTextFrame = 64u << 10;
inline constexpr size_t kMaxEndText = 4096;
inline constexpr uint32_t kMaxEndFrame = 16u << 10;

enum PluginOp : uint8_t {
  kOpFields = 1,   // load the library, list its fields and its detect string
  kOpValue = 2,    // one field's value for one file
  kOpText = 3,     // the text of the full-text field for one file
  kOpSandbox = 4,  // what holds in the host's sandbox, as the end's message
  // A host started in lister mode answers these (and kOpSandbox) only; a content host refuses
  // them, and a lister host refuses the content operations.
  kOpListDetect = 5,  // load a lister library; the end carries its own detect string
  kOpListLoad = 6,    // show `path` in a window made by the lister as a child of `window`; the
                      // end carries the lister's window (kPluginNoValue: the lister refused)
  kOpListClose = 7,   // close the lister window `window` (ListCloseWindow)
};

struct PluginRequest {
  PluginOp op = kOpFields;
  std::string library;    // the plugin library's path (raw bytes)
  std::string path;       // the file asked about (raw bytes)
  int32_t field = 0;      // the field's index
  // How long the plugin may take before the host asks it to stop (ContentStopGetValue); the
  // client kills the host a little later, should the plugin not stop.
  uint32_t stop_after_ms = 5000;
  uint64_t max_text_bytes = 10'000'000;  // kOpText
  // kOpListLoad: the parent window (an X11 window id); kOpListClose: the lister's window.
  uint64_t window = 0;

  std::string Encode() const {
    platform::FrameWriter w;
    w.U8(op).Bytes(library).Bytes(path).U32(static_cast<uint32_t>(field)).U32(stop_after_ms).U64(max_text_bytes);
    w.U64(window);
    return w.Take();
  }
  bool Decode(const std::string& payload) {
    platform::FrameReader r(payload);
    const uint8_t o = r.U8();
    if (o < kOpFields || o > kOpListClose) return false;
    op = static_cast<PluginOp>(o);
    library = r.Bytes();
    path = r.Bytes();
    field = static_cast<int32_t>(r.U32());
    stop_after_ms = r.U32();
    max_text_bytes = std::min(r.U64(), kMaxTextAnswer);
    window = r.U64();
    return !r.failed() && r.at_end();
  }
};

struct PluginField {
  int32_t index = 0;
  int32_t type = 0;
  std::string name;   // UTF-8, the plugin's own name for it (without the plugin's name)
  std::string units;  // UTF-8, the units or choices, "|"-separated as the plugin gives them

  std::string Encode() const {
    platform::FrameWriter w;
    w.U32(static_cast<uint32_t>(index)).U32(static_cast<uint32_t>(type)).Bytes(name).Bytes(units);
    return w.Take();
  }
  bool Decode(const std::string& payload) {
    platform::FrameReader r(payload);
    index = static_cast<int32_t>(r.U32());
    type = static_cast<int32_t>(r.U32());
    name = r.Bytes();
    units = r.Bytes();
    return !r.failed() && r.at_end() && index >= 0 && name.size() <= kMaxFieldName * 4 &&
           units.size() <= static_cast<size_t>(kMaxNameLength) * 3;
  }
};

// What ContentGetValue returned: its result (a field type, or a result below 1) and the
// buffer read by that type.
struct PluginValue {
  int32_t type = kFtFieldEmpty;
  int64_t integer = 0;  // kFtNumeric32, kFtNumeric64, kFtBoolean; kFtDateTime: the FILETIME
  double number = 0;    // kFtNumericFloating
  std::string text;     // kFtMultipleChoice, kFtString, kFtStringW: UTF-8

  std::string Encode() const {
    platform::FrameWriter w;
    uint64_t bits = 0;
    static_assert(sizeof bits == sizeof number);
    std::memcpy(&bits, &number, sizeof bits);
    w.U32(static_cast<uint32_t>(type)).I64(integer).U64(bits).Bytes(text);
    return w.Take();
  }
  bool Decode(const std::string& payload) {
    platform::FrameReader r(payload);
    type = static_cast<int32_t>(r.U32());
    integer = r.I64();
    const uint64_t bits = r.U64();
    std::memcpy(&number, &bits, sizeof bits);
    text = r.Bytes();
    return !r.failed() && r.at_end() && text.size() <= static_cast<size_t>(kValueBufferBytes) * 3;
  }
};

enum PluginCode : uint32_t {
  kPluginOk = 0,          // the fields, the value or the text were sent
  kPluginNoValue = 1,     // the plugin said there is no value (its result was below 1)
  kPluginNotLoaded = 2,   // the library cannot be loaded or lacks ContentGetSupportedField
  kPluginOverrun = 3,     // the plugin wrote past the buffer it was given: its value is refused
  kPluginStopped = 4,     // the plugin was asked to stop (it took too long) and did
  kPluginBadRequest = 5,  // the request did not decode
};

struct PluginEnd {
  PluginCode code = kPluginNoValue;
  std::string message;
  std::string detect;        // kOpFields: the plugin's detect string (its own, when it has one)
  uint32_t full_text = 0;    // kOpFields: the full-text field's index plus one, 0 when none
  int32_t full_text_type = 0;  // kOpFields: kFtFullText or kFtFullTextW
  uint64_t window = 0;         // kOpListLoad: the lister's window, 0 when it made none

  std::string Encode() const {
    platform::FrameWriter w;
    w.U32(code)
        .Bytes(message.substr(0, kMaxEndText))
        .Bytes(detect.substr(0, kMaxEndText))
        .U32(full_text)
        .U32(static_cast<uint32_t>(full_text_type))
        .U64(window);
    return w.Take();
  }
  bool Decode(const std::string& payload) {
    platform::FrameReader r(payload);
    code = static_cast<PluginCode>(r.U32());
    message = r.Bytes();
    detect = r.Bytes();
    full_text = r.U32();
    full_text_type = static_cast<int32_t>(r.U32());
    window = r.U64();
    return !r.failed() && r.at_end() && code <= kPluginBadRequest && message.size() <= kMaxEndText &&
           detect.size() <= kMaxEndText;
  }
};

// The client's side of one answer: every frame goes through Take, which checks it against the
// request and decodes it. kBroken means the host is broken or taken over: the client kills it.
class PluginAnswer {
 public:
  enum Result { kMore, kEnd, kBroken };

  explicit PluginAnswer(const PluginRequest& request)
      : op_(request.op), max_text_(std::min(request.max_text_bytes, kMaxTextAnswer)) {}

  Result Take(const platform::Frame& frame) {
    if (ended_ || broken_) return kBroken;
    switch (frame.type) {
      case kPluginField:
        if (op_ != kOpFields || ++fields_ > kMaxFields || !field_.Decode(frame.payload)) return Broken();
        return kMore;
      case kPluginValue:
        if (op_ != kOpValue || has_value_ || !value_.Decode(frame.payload)) return Broken();
        has_value_ = true;
        return kMore;
      case kPluginText:
        text_bytes_ += frame.payload.size();
        if (op_ != kOpText || text_bytes_ > max_text_) return Broken();
        return kMore;
      case kPluginEnd:
        if (!end_.Decode(frame.payload)) return Broken();
        ended_ = true;
        return kEnd;
      default:
        return Broken();
    }
  }

  // The limits the pool holds the whole answer to.
  platform::AnswerLimits Limits() const {
    switch (op_) {
      case kOpFields: return {kMaxFieldFrame, uint64_t{kMaxFields} * 8192 + kMaxEndFrame};
      case kOpValue: return {kMaxValueFrame, uint64_t{kMaxValueFrame} + kMaxEndFrame};
      case kOpText: return {kMaxTextFrame, max_text_ + kMaxEndFrame};
      case kOpSandbox:
      case kOpListDetect:
      case kOpListLoad:
      case kOpListClose:
        break;
    }
    return {kMaxEndFrame, kMaxEndFrame};
  }

  const PluginField& field() const { return field_; }
  bool has_value() const { return has_value_; }
  const PluginValue& value() const { return value_; }
  const PluginEnd& end() const { return end_; }
  bool ended() const { return ended_; }

 private:
  Result Broken() {
    broken_ = true;
    return kBroken;
  }

  PluginOp op_;
  uint64_t max_text_;
  PluginField field_;
  PluginValue value_;
  PluginEnd end_;
  uint32_t fields_ = 0;
  uint64_t text_bytes_ = 0;
  bool has_value_ = false;
  bool ended_ = false;
  bool broken_ = false;
};

// One request to a host of `pool`, its answer checked frame by frame into *answer; a host that
// answers beyond the request is killed (kRefused). `on_frame`, when given, sees each accepted
// frame before the end and may stop the exchange (false: kCancel).
inline platform::ExchangeStatus AskPluginHost(platform::ProcessPool& pool, const PluginRequest& request,
                                              PluginAnswer* answer, int64_t timeout_ms,
                                              platform::ExchangeFailure* failure,
                                              const std::function<bool(const platform::Frame&)>& on_frame = {}) {
  return pool.Exchange(
      kPluginRequest, request.Encode(), kPluginEnd,
      [&](const platform::Frame& frame) {
        const PluginAnswer::Result result = answer->Take(frame);
        if (result == PluginAnswer::kBroken) return platform::FrameVerdict::kRefuse;
        if (result == PluginAnswer::kMore && on_frame && !on_frame(frame)) return platform::FrameVerdict::kCancel;
        return platform::FrameVerdict::kMore;
      },
      timeout_ms, failure, answer->Limits());
}

}  // namespace trovix::plugin
