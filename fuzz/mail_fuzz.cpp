// Arbitrary bytes as mail: a message and a mailbox (named so, or told by its first line) read
// for text, listed for attachments, the first attachment read out, and the message's
// properties. Nothing may crash, hang or leak, however deep the parts nest.
#include "extract/readers/mail_reader.h"
#include "fuzz/new_readers_common.h"

using namespace trovix::extract;

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  const std::string bytes(reinterpret_cast<const char*>(data), size);
  // A file without an extension is a mailbox only when its first bytes say so.
  for (const char* name : {"fuzz.eml", "fuzz.mbox", "Inbox"}) {
    fuzzing::ReadText(bytes, name, [](const DocumentInput& in, ExtractContext& c) {
      ReadMail(in, ExtensionOf(in.name), c);
      ReadMailProperties(in, c, [](const ExtractedProperty&) { return true; });
      std::string first;
      ListMail(
          in, c.limits, c.budget,
          [&](const ArchiveMember& m) {
            if (first.empty() && !m.is_dir) first = m.path;
            return true;
          },
          [] { return false; });
      std::string member;
      if (!first.empty()) ReadMailMember(in, first, c.limits, c.budget, &member);
    });
  }
  return 0;
}
