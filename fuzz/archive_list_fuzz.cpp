// Lists arbitrary bytes as an archive (every format and filter the helper reads), then reads
// the first few members out and hands each to the reader its name picks, under small limits.
// Nothing may crash, hang or leak; every outcome is acceptable.
#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

#include "extract/archive/archive_reader.h"
#include "extract/document_input.h"
#include "extract/document_router.h"
#include "extract/extract_context.h"
#include "extract/text_sink.h"

namespace {

using namespace trovix::extract;

constexpr size_t kMembersRead = 4;

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  std::string bytes(reinterpret_cast<const char*>(data), size);
  ExtractLimits limits;
  limits.max_members = 200;
  limits.max_member_bytes = 1 << 20;
  limits.max_text_bytes = 1 << 20;
  ExpandBudget budget(8u << 20);
  DocumentInput input = DocumentInput::Memory(&bytes, "fuzz.archive");
  std::vector<ArchiveMember> members;
  ListArchive(
      input, limits, &budget,
      [&members](const ArchiveMember& m) {
        members.push_back(m);
        return true;
      },
      nullptr);
  size_t read = 0;
  for (const ArchiveMember& m : members) {
    if (m.is_dir) continue;
    if (++read > kMembersRead) break;
    std::string member;
    if (!ReadMember(input, m.path, limits, &budget, &member).ok()) continue;
    TextSink sink(limits, [](std::string_view) { return true; }, nullptr);
    ExtractContext context{&sink, &budget, limits};
    ReadDocument(DocumentInput::Memory(&member, m.path), ExtensionOf(m.path), context);
    sink.Finish();
  }
  return 0;
}
