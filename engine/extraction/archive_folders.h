// ArchiveFolders: archives as folders of the walk ("Enter virtual folders"). An archive file
// (zip, tar and its compressed forms, 7z, cpio, iso; and mail, .eml and .mbox, whose attachments
// are its members) is entered like a folder; its members are
// items with their own names, sizes and dates, whose paths are the archive's path followed by
// the member's path ("/x/a.zip/docs/b.pdf"). Folders inside the archive are entered in turn,
// and so are archives inside the archive, down to the depth limit.
//
// The archive is read by the extraction helper, never in the search process: one listing per
// archive, kept while the walk goes through that archive's folders.
//
// Folder classes: each archive handler has a class identifier; an archive whose class starts
// with one of the excluded folder classes (32-bit values kept with the settings) is not
// entered.
//
// Thread-safety: one walk at a time (the walk calls its hook on its own thread).
#pragma once

#include <cstdint>
#include <map>
#include <string>
#include <string_view>
#include <vector>

#include "platform/extract_protocol.h"
#include "engine/extraction/extraction_service.h"
#include "engine/walk/folder_walk.h"

namespace trovix::engine {

// The first 32 bits of the class identifier of the handler for an archive type: the
// compressed-folder class for zip, our own for the others.
inline constexpr uint32_t kClassZipFolder = 0xE88DCCE0;
inline constexpr uint32_t kClassTarFolder = 0x7A3E5B10;
inline constexpr uint32_t kClassSevenZipFolder = 0x7A3E5B11;
inline constexpr uint32_t kClassCpioFolder = 0x7A3E5B12;
inline constexpr uint32_t kClassIsoFolder = 0x7A3E5B13;
// Mail (.eml, .mbox): attachments as members.
inline constexpr uint32_t kClassMailFolder = 0x7A3E5B14;

// The class of the archive handler for a file name, 0 when no handler reads it.
uint32_t ArchiveClassOf(std::string_view name);

// What an archive member's listing says of it, as a file status: its type, its size and the
// one time archives keep (which stands in for the others; no time at all when it has none).
platform::FileStatus MemberStatusOf(const extract::ArchiveMember& member);

struct ArchiveFolderOptions {
  std::vector<uint32_t> excluded_classes;
  uint32_t max_depth = 5;
  uint32_t max_members = 10'000;
  uint64_t max_expanded_bytes = 1'000'000'000;
};

class ArchiveFolders final : public VirtualFolders {
 public:
  explicit ArchiveFolders(ArchiveFolderOptions options, ExtractionService* service = nullptr);

  bool IsVirtualFolder(props::ShellItem& item) override;
  int List(const props::ShellItemPtr& folder, std::vector<VirtualChild>* out) override;

  // Archives that could not be listed whole (damaged, a limit reached), with the reason.
  const std::vector<std::pair<std::string, std::string>>& problems() const { return problems_; }

 private:
  const std::vector<extract::ArchiveMember>* Listing(const props::ShellItem& archive_item,
                                                     const std::string& container,
                                                     const std::vector<std::string>& chain, int* error);
  ExtractionService& service();

  ArchiveFolderOptions options_;
  ExtractionService* service_;
  // The listing of the archive the walk is in, by container and member chain.
  std::string cached_key_;
  std::vector<extract::ArchiveMember> cached_;
  std::vector<std::pair<std::string, std::string>> problems_;
};

}  // namespace trovix::engine
