#include "extract/readers/mail_reader.h"

#include <fcntl.h>
#include <gmime/gmime.h>
#include <unistd.h>

#include <algorithm>
#include <cstring>
#include <functional>
#include <memory>
#include <mutex>
#include <set>
#include <string>
#include <vector>

#include "base/document_types.h"
#include "base/file_time.h"
#include "base/utf.h"
#include "extract/readers/html_reader.h"
#include "extract/readers/plain_reader.h"

namespace trovix::extract {
namespace {

void InitGMime() {
  static std::once_flag once;
  std::call_once(once, [] { g_mime_init(); });
}

struct Unref {
  void operator()(gpointer p) const {
    if (p) g_object_unref(p);
  }
};
template <class T>
using GPtr = std::unique_ptr<T, Unref>;

bool IsMbox(const DocumentInput& input, std::string_view extension) {
  return extension != "eml" && IsMailInput(input, extension);
}

// Header values as UTF-8 whatever a sender wrote into them.
std::string Utf8Of(const char* text) { return text ? base::ToDisplayUtf8(text) : std::string(); }

// One parser over the input, message after message.
class MailParser {
 public:
  bool Open(const DocumentInput& input, bool mbox) {
    InitGMime();
    if (input.in_memory()) {
      stream_.reset(g_mime_stream_mem_new_with_buffer(input.bytes->data(), input.bytes->size()));
    } else {
      const int fd = open(input.path.c_str(), O_RDONLY | O_CLOEXEC);
      if (fd < 0) return false;
      stream_.reset(g_mime_stream_fs_new(fd));  // owns fd
    }
    if (!stream_) return false;
    parser_.reset(g_mime_parser_new_with_stream(stream_.get()));
    g_mime_parser_set_format(parser_.get(), mbox ? GMIME_FORMAT_MBOX : GMIME_FORMAT_MESSAGE);
    options_ = g_mime_parser_options_new();
    g_mime_parser_options_set_warning_callback(options_, &MailParser::OnWarning, this);
    mbox_ = mbox;
    return true;
  }
  ~MailParser() {
    if (options_) g_mime_parser_options_free(options_);
  }

  // The next message, or null at the end (a single message is one).
  GPtr<GMimeMessage> Next() {
    if (done_ || g_mime_parser_eos(parser_.get())) return nullptr;
    GPtr<GMimeMessage> m(g_mime_parser_construct_message(parser_.get(), options_));
    if (!mbox_ || !m) done_ = true;
    return m;
  }
  bool nesting_overflow() const { return overflow_; }

 private:
  static void OnWarning(gint64, GMimeParserWarning code, const gchar*, gpointer self) {
    if (code == GMIME_CRIT_NESTING_OVERFLOW) static_cast<MailParser*>(self)->overflow_ = true;
  }

  GPtr<GMimeStream> stream_;
  GPtr<GMimeParser> parser_;
  GMimeParserOptions* options_ = nullptr;
  bool mbox_ = false;
  bool done_ = false;
  bool overflow_ = false;
};

struct Attachment {
  std::string name;
  GMimeObject* object = nullptr;  // owned by its message
};

// What a message holds, found in one walk over its parts.
struct PartWalk {
  std::vector<GMimeObject*> bodies;  // text/plain or text/html parts, in reading order
  std::vector<Attachment> attachments;
  std::set<std::string> names;
  bool too_deep = false;
  bool encrypted = false;
  size_t max_attachments = 0;
};

bool IsType(GMimeObject* object, const char* type, const char* subtype) {
  GMimeContentType* ct = g_mime_object_get_content_type(object);
  return ct && g_mime_content_type_is_type(ct, type, subtype);
}

// S/MIME's encrypted body (a signed-only one still carries readable text beside it).
bool IsSmimeEnvelope(GMimeObject* object) {
  if (!IsType(object, "application", "pkcs7-mime") &&
      !IsType(object, "application", "x-pkcs7-mime"))
    return false;
  const char* kind = g_mime_object_get_content_type_parameter(object, "smime-type");
  return !kind || g_ascii_strcasecmp(kind, "enveloped-data") == 0 ||
         g_ascii_strcasecmp(kind, "authEnveloped-data") == 0;
}

std::string ExtensionForType(GMimeObject* object) {
  if (GMIME_IS_MESSAGE_PART(object)) return ".eml";
  if (IsType(object, "text", "plain")) return ".txt";
  if (IsType(object, "text", "html")) return ".html";
  if (IsType(object, "application", "pdf")) return ".pdf";
  if (IsType(object, "image", "jpeg")) return ".jpg";
  if (IsType(object, "image", "png")) return ".png";
  return "";
}

std::string NameOf(GMimeObject* object, size_t number) {
  const char* raw = g_mime_object_get_content_disposition_parameter(object, "filename");
  if (!raw || !*raw) raw = g_mime_object_get_content_type_parameter(object, "name");
  std::string name = Utf8Of(raw);
  // A member name is one path element; folders in a sender's file name are not ours to make.
  for (char& c : name)
    if (c == '/' || c == '\\' || static_cast<unsigned char>(c) < 0x20) c = '_';
  while (!name.empty() && (name.front() == ' ' || name.front() == '.')) name.erase(0, 1);
  while (!name.empty() && name.back() == ' ') name.pop_back();
  if (name.empty()) return "part " + std::to_string(number) + ExtensionForType(object);
  // An attached message is read as mail whatever its sender called it.
  if (GMIME_IS_MESSAGE_PART(object) && name.size() > 4 &&
      name.compare(name.size() - 4, 4, ".eml") != 0)
    name += ".eml";
  return name;
}

void AddAttachment(GMimeObject* object, PartWalk& w) {
  if (w.attachments.size() >= w.max_attachments) return;
  const std::string base = NameOf(object, w.attachments.size() + 1);
  std::string name = base;
  for (int n = 2; !w.names.insert(name).second; ++n) {
    const size_t dot = base.rfind('.');
    const bool ext = dot != std::string::npos && dot > 0;
    name = (ext ? base.substr(0, dot) : base) + " (" + std::to_string(n) + ")" +
           (ext ? base.substr(dot) : "");
  }
  w.attachments.push_back({std::move(name), object});
}

void Walk(GMimeObject* object, int depth, PartWalk& w) {
  if (!object) return;
  if (depth > kMaxMailDepth) {
    w.too_deep = true;
    return;
  }
  if (GMIME_IS_MULTIPART_ENCRYPTED(object) || IsSmimeEnvelope(object)) {
    w.encrypted = true;
    return;
  }
  if (GMIME_IS_MULTIPART(object)) {
    GMimeMultipart* mp = GMIME_MULTIPART(object);
    const int count = g_mime_multipart_get_count(mp);
    if (IsType(object, "multipart", "alternative") && count > 0) {
      // One of the alternatives: the plain text one when there is one, else the richest (last).
      for (int i = 0; i < count; ++i) {
        GMimeObject* child = g_mime_multipart_get_part(mp, i);
        if (GMIME_IS_PART(child) && IsType(child, "text", "plain"))
          return Walk(child, depth + 1, w);
      }
      return Walk(g_mime_multipart_get_part(mp, count - 1), depth + 1, w);
    }
    for (int i = 0; i < count; ++i) Walk(g_mime_multipart_get_part(mp, i), depth + 1, w);
    return;
  }
  if (GMIME_IS_MESSAGE_PART(object)) return AddAttachment(object, w);
  if (!GMIME_IS_PART(object)) return;
  GMimePart* part = GMIME_PART(object);
  const bool text = IsType(object, "text", "plain") || IsType(object, "text", "html");
  if (!text || g_mime_part_is_attachment(part) || g_mime_part_get_filename(part))
    return AddAttachment(object, w);
  w.bodies.push_back(object);
}

PartWalk WalkMessage(GMimeMessage* message, size_t max_attachments) {
  PartWalk w;
  w.max_attachments = max_attachments;
  Walk(g_mime_message_get_mime_part(message), 0, w);
  return w;
}

// The encoded size of a part's content; -1 when unknown.
int64_t EncodedLength(GMimeObject* object) {
  if (!GMIME_IS_PART(object)) return -1;
  GMimeDataWrapper* wrapper = g_mime_part_get_content(GMIME_PART(object));
  GMimeStream* s = wrapper ? g_mime_data_wrapper_get_stream(wrapper) : nullptr;
  return s ? g_mime_stream_length(s) : -1;
}

// The part's bytes with its transfer encoding undone (or the attached message as it stands).
GByteArray* DecodeInto(GMimeObject* object, GMimeStream* mem) {
  if (GMIME_IS_MESSAGE_PART(object)) {
    GMimeMessage* m = g_mime_message_part_get_message(GMIME_MESSAGE_PART(object));
    if (m) g_mime_object_write_to_stream(GMIME_OBJECT(m), nullptr, mem);
  } else if (GMimeDataWrapper* wrapper = g_mime_part_get_content(GMIME_PART(object))) {
    g_mime_data_wrapper_write_to_stream(wrapper, mem);
  }
  return g_mime_stream_mem_get_byte_array(GMIME_STREAM_MEM(mem));
}

// Decoded bytes of at most `bound`; kEndTooLarge above it. Base64 and quoted-printable never
// decode to more than they take encoded, so the encoded length decides before any work.
Outcome Decode(GMimeObject* object, uint64_t bound, ExpandBudget* budget, std::string* bytes) {
  bytes->clear();
  const int64_t encoded = EncodedLength(object);
  if (encoded > 0 && static_cast<uint64_t>(encoded) > bound * 3 + 4096)
    return Outcome::Fail(kEndTooLarge, "attachment too large to read");
  GPtr<GMimeStream> mem(g_mime_stream_mem_new());
  GByteArray* array = DecodeInto(object, mem.get());
  if (!array) return Outcome::Ok();
  if (array->len > bound) return Outcome::Fail(kEndTooLarge, "attachment too large to read");
  if (!budget->Take(array->len)) return Outcome::Fail(kEndLimit, "too much to decompress");
  bytes->assign(reinterpret_cast<const char*>(array->data), array->len);
  return Outcome::Ok();
}

uint64_t DecodedSize(GMimeObject* object) {
  GPtr<GMimeStream> null(g_mime_stream_null_new());
  if (GMIME_IS_MESSAGE_PART(object)) {
    GMimeMessage* m = g_mime_message_part_get_message(GMIME_MESSAGE_PART(object));
    if (m) g_mime_object_write_to_stream(GMIME_OBJECT(m), nullptr, null.get());
  } else if (GMimeDataWrapper* wrapper = g_mime_part_get_content(GMIME_PART(object))) {
    g_mime_data_wrapper_write_to_stream(wrapper, null.get());
  }
  return GMIME_STREAM_NULL(null.get())->written;
}

Outcome ReadBody(GMimeObject* body, ExtractContext& context) {
  const int64_t encoded = EncodedLength(body);
  if (encoded > static_cast<int64_t>(kMaxMailTextPart)) return Outcome::Ok();
  TextSink& sink = *context.sink;
  if (IsType(body, "text", "html")) {
    // The HTML reader finds the page's charset itself (a <meta> wins over the mail's header).
    std::string html;
    Outcome o = Decode(body, kMaxMailTextPart, context.budget, &html);
    if (!o.ok()) return o;
    return ReadHtml(DocumentInput::Memory(&html, "body.html"), "html", context);
  }
  if (!GMIME_IS_TEXT_PART(body)) return Outcome::Ok();
  char* text = g_mime_text_part_get_text(GMIME_TEXT_PART(body));
  if (!text) return Outcome::Ok();
  const std::string_view view(text);
  const bool utf8 = base::IsValidUtf8(view);
  if (utf8 && !context.budget->Take(view.size())) {
    g_free(text);
    return Outcome::Fail(kEndLimit, "too much to decompress");
  }
  if (utf8) sink.Append(view);
  g_free(text);
  if (utf8) return Outcome::Ok();
  // Eight-bit text without a charset (or with a wrong one): its encoding is detected as for
  // plain text files.
  std::string raw;
  Outcome o = Decode(body, kMaxMailTextPart, context.budget, &raw);
  if (!o.ok()) return o;
  return ReadPlainOrRtf(DocumentInput::Memory(&raw, "body.txt"), "txt", context);
}

const char* kTooDeep = "mail parts nested too deep; the deeper ones were not read";

void AddressesOf(InternetAddressList* list, std::vector<std::string>* addresses,
                 std::vector<std::string>* names, int depth = 0) {
  if (!list || depth > 2) return;
  const int n = internet_address_list_length(list);
  for (int i = 0; i < n; ++i) {
    InternetAddress* ia = internet_address_list_get_address(list, i);
    if (INTERNET_ADDRESS_IS_GROUP(ia)) {
      AddressesOf(internet_address_group_get_members(INTERNET_ADDRESS_GROUP(ia)), addresses, names,
                  depth + 1);
      continue;
    }
    if (!INTERNET_ADDRESS_IS_MAILBOX(ia)) continue;
    const char* addr = internet_address_mailbox_get_addr(INTERNET_ADDRESS_MAILBOX(ia));
    const char* name = internet_address_get_name(ia);
    if (!addr || !*addr) continue;
    addresses->push_back(Utf8Of(addr));
    names->push_back(Utf8Of(name && *name ? name : addr));
  }
}

std::string MemberPrefix(bool mbox, size_t message_number) {
  return mbox ? std::to_string(message_number) + "/" : std::string();
}

}  // namespace

bool IsMailInput(const DocumentInput& input, std::string_view extension) {
  if (extension == "eml" || extension == "mbox") return true;
  if (!extension.empty()) return false;
  // Only a real mailbox: a file without an extension that is something else stays what it is.
  const std::string head = input.Head(1024);
  const std::string_view start(head);
  if (base::LooksLikeMailbox(start)) return true;
  // A file named "mbox" needs only the separator's first word.
  const size_t slash = input.name.rfind('/');
  return std::string_view(input.name).substr(slash == std::string::npos ? 0 : slash + 1) == "mbox" &&
         start.substr(0, 5) == "From ";
}

Outcome ReadMail(const DocumentInput& input, std::string_view extension, ExtractContext& context) {
  MailParser parser;
  if (!parser.Open(input, IsMbox(input, extension)))
    return Outcome::Fail(kEndUnreadable, "cannot open mail");
  TextSink& sink = *context.sink;
  size_t messages = 0;
  bool too_deep = false;
  bool encrypted_only = true;
  while (GPtr<GMimeMessage> message = parser.Next()) {
    if (!sink.Poll()) return Outcome::Ok();
    if (++messages > context.limits.max_members)
      return Outcome::Fail(kEndLimit, "more messages than are read");
    if (messages > 1 && !sink.NewLine()) return Outcome::Ok();
    if (const char* subject = g_mime_message_get_subject(message.get())) {
      if (!sink.Append(Utf8Of(subject)) || !sink.NewLine()) return Outcome::Ok();
    }
    PartWalk w = WalkMessage(message.get(), 0);
    too_deep = too_deep || w.too_deep;
    encrypted_only = encrypted_only && w.encrypted && w.bodies.empty();
    for (GMimeObject* body : w.bodies) {
      if (!sink.NewLine()) return Outcome::Ok();
      Outcome o = ReadBody(body, context);
      if (sink.stopped()) return Outcome::Ok();
      if (o.code == kEndLimit) return o;
    }
  }
  if (messages == 0) return Outcome::Fail(kEndUnreadable, "not mail that can be read");
  if (encrypted_only) return Outcome::Fail(kEndEncrypted, "encrypted");
  if (too_deep || parser.nesting_overflow()) return Outcome::Fail(kEndLimit, kTooDeep);
  return Outcome::Ok();
}

Outcome ReadMailProperties(const DocumentInput& input, ExtractContext& context,
                           const PropertyOut& out) {
  MailParser parser;
  if (!parser.Open(input, false)) return Outcome::Fail(kEndUnreadable, "cannot open mail");
  GPtr<GMimeMessage> message = parser.Next();
  if (!message) return Outcome::Fail(kEndUnreadable, "not mail that can be read");
  GMimeMessage* m = message.get();
  bool sent = true;
  auto send = [&](ExtractedProperty p) { sent = sent && out(p); };
  for (auto [list, address_name, name_name] :
       {std::tuple{g_mime_message_get_from(m), "System.Message.FromAddress",
                   "System.Message.FromName"},
        std::tuple{g_mime_message_get_to(m), "System.Message.ToAddress",
                   "System.Message.ToName"}}) {
    std::vector<std::string> addresses, names;
    AddressesOf(list, &addresses, &names);
    if (addresses.empty()) continue;
    send(ExtractedProperty::Texts(address_name, std::move(addresses)));
    send(ExtractedProperty::Texts(name_name, std::move(names)));
  }
  if (const char* subject = g_mime_message_get_subject(m); subject && *subject)
    send(ExtractedProperty::Text("System.Subject", Utf8Of(subject)));
  if (GDateTime* date = g_mime_message_get_date(m))
    send(ExtractedProperty::Number("System.Message.DateSent",
                                   base::FileTimeFromUnix(g_date_time_to_unix(date)),
                                   ExtractedProperty::kTime));
  PartWalk w = WalkMessage(m, context.limits.max_members);
  send(ExtractedProperty::Number("System.Message.HasAttachments", w.attachments.empty() ? 0 : 1,
                                 ExtractedProperty::kFlag));
  if (!w.attachments.empty()) {
    std::vector<std::string> names;
    for (const Attachment& a : w.attachments) names.push_back(a.name);
    send(ExtractedProperty::Texts("System.Message.AttachmentNames", std::move(names)));
  }
  return Outcome::Ok();
}

Outcome ListMail(const DocumentInput& input, const ExtractLimits& limits, ExpandBudget*,
                 const MemberFn& on_member, const CancelledFn& cancelled) {
  const bool mbox = IsMbox(input, ExtensionOf(input.name));
  MailParser parser;
  if (!parser.Open(input, mbox)) return Outcome::Fail(kEndUnreadable, "cannot open mail");
  size_t messages = 0;
  uint64_t listed = 0;
  while (GPtr<GMimeMessage> message = parser.Next()) {
    if (cancelled && cancelled()) return Outcome::Fail(kEndCancelled, "cancelled");
    ++messages;
    PartWalk w = WalkMessage(message.get(), limits.max_members);
    if (w.attachments.empty()) continue;
    ArchiveMember m;
    if (GDateTime* date = g_mime_message_get_date(message.get()))
      m.mtime_sec = g_date_time_to_unix(date);
    if (mbox) {
      ArchiveMember dir = m;
      dir.path = std::to_string(messages);
      dir.is_dir = true;
      if (!on_member(dir)) return Outcome::Fail(kEndCancelled, "cancelled");
    }
    for (const Attachment& a : w.attachments) {
      if (++listed > limits.max_members)
        return Outcome::Fail(kEndLimit,
                             "more than " + std::to_string(limits.max_members) + " members");
      m.path = MemberPrefix(mbox, messages) + a.name;
      m.size = DecodedSize(a.object);
      if (!on_member(m)) return Outcome::Fail(kEndCancelled, "cancelled");
    }
  }
  if (messages == 0) return Outcome::Fail(kEndUnreadable, "not mail that can be read");
  return Outcome::Ok();
}

Outcome ReadMailMember(const DocumentInput& input, std::string_view member_path,
                       const ExtractLimits& limits, ExpandBudget* budget, std::string* bytes) {
  bytes->clear();
  if (limits.max_member_bytes == 0)
    return Outcome::Fail(kEndTooLarge, "reading archive members is off");
  const bool mbox = IsMbox(input, ExtensionOf(input.name));
  MailParser parser;
  if (!parser.Open(input, mbox)) return Outcome::Fail(kEndUnreadable, "cannot open mail");
  size_t messages = 0;
  while (GPtr<GMimeMessage> message = parser.Next()) {
    ++messages;
    const std::string prefix = MemberPrefix(mbox, messages);
    if (member_path.substr(0, prefix.size()) != prefix) continue;
    PartWalk w = WalkMessage(message.get(), limits.max_members);
    for (const Attachment& a : w.attachments) {
      if (prefix + a.name == member_path)
        return Decode(a.object, limits.max_member_bytes, budget, bytes);
    }
    if (mbox) break;
  }
  return Outcome::Fail(kEndUnreadable, "no member " + std::string(member_path));
}

}  // namespace trovix::extract
