#include "engine/extraction/archive_folders.h"

#include <errno.h>

#include <set>

#include "engine/extraction/contents_reader.h"

namespace trovix::engine {
namespace {

std::string Lower(std::string_view text) {
  std::string out(text);
  for (char& c : out)
    if (c >= 'A' && c <= 'Z') c = static_cast<char>(c - 'A' + 'a');
  return out;
}

bool EndsWith(std::string_view text, std::string_view end) {
  return text.size() > end.size() && text.substr(text.size() - end.size()) == end;
}

}  // namespace

platform::FileStatus MemberStatusOf(const extract::ArchiveMember& member) {
  platform::FileStatus st;
  st.type = member.is_dir ? platform::FileType::kDirectory : platform::FileType::kRegular;
  st.mode = member.is_dir ? 0040755 : 0100644;
  st.size = member.is_dir ? 0 : member.size;
  if (member.mtime_sec != 0 || member.mtime_nsec != 0) {
    st.modified = base::FileTimeFromUnix(member.mtime_sec, member.mtime_nsec);
    st.created = st.changed = st.accessed = st.modified;
  }
  return st;
}

uint32_t ArchiveClassOf(std::string_view name) {
  const std::string lower = Lower(name);
  for (std::string_view zip : {".zip", ".jar"})
    if (EndsWith(lower, zip)) return kClassZipFolder;
  for (std::string_view tar : {".tar", ".tgz", ".tbz", ".tbz2", ".txz", ".tzst", ".tar.gz", ".tar.bz2", ".tar.xz",
                               ".tar.zst", ".tar.lz4"})
    if (EndsWith(lower, tar)) return kClassTarFolder;
  if (EndsWith(lower, ".7z")) return kClassSevenZipFolder;
  if (EndsWith(lower, ".cpio")) return kClassCpioFolder;
  if (EndsWith(lower, ".iso")) return kClassIsoFolder;
  if (EndsWith(lower, ".eml") || EndsWith(lower, ".mbox") || lower == "mbox" || EndsWith(lower, "/mbox"))
    return kClassMailFolder;
  return 0;
}

ArchiveFolders::ArchiveFolders(ArchiveFolderOptions options, ExtractionService* service)
    : options_(std::move(options)), service_(service) {}

ExtractionService& ArchiveFolders::service() { return service_ ? *service_ : ExtractionService::Shared(); }

bool ArchiveFolders::IsVirtualFolder(props::ShellItem& item) {
  const uint32_t cls = ArchiveClassOf(item.name());
  if (cls == 0) return false;
  for (uint32_t excluded : options_.excluded_classes)
    if (excluded == cls) return false;
  // An archive inside an archive counts one level deeper.
  if (const props::ArchiveLocation* archive = item.archive()) return archive->members.size() < options_.max_depth;
  return true;
}

const std::vector<extract::ArchiveMember>* ArchiveFolders::Listing(const props::ShellItem& archive_item,
                                                                   const std::string& container,
                                                                   const std::vector<std::string>& chain,
                                                                   int* error) {
  std::string key = container;
  for (const std::string& member : chain) (key += '\0') += member;
  if (key == cached_key_) return &cached_;
  cached_key_.clear();
  cached_.clear();
  extract::ExtractRequest request;
  request.op = extract::kOpList;
  request.path = container;
  request.members = chain;
  request.limits.max_depth = options_.max_depth;
  request.limits.max_members = options_.max_members;
  request.limits.max_expanded_bytes = options_.max_expanded_bytes;
  props::ShellItem& item = const_cast<props::ShellItem&>(archive_item);
  ExtractOutcome outcome = service().List(request, IdentityOf(item), &cached_);
  if (outcome.status != props::ContentsStatus::kText || !outcome.message.empty())
    problems_.emplace_back(archive_item.path(), outcome.message.empty() ? "cannot be read" : outcome.message);
  if (cached_.empty() && outcome.status != props::ContentsStatus::kText) {
    *error = EIO;
    return nullptr;
  }
  cached_key_ = std::move(key);
  return &cached_;
}

int ArchiveFolders::List(const props::ShellItemPtr& folder, std::vector<VirtualChild>* out) {
  out->clear();
  // Which archive, and which folder inside it: an archive file (in the file system or inside
  // another archive) is listed from its root; a folder inside an archive from its own path.
  std::string container;
  std::vector<std::string> chain;
  std::string prefix;
  if (const props::ArchiveLocation* location = folder->archive()) {
    container = location->container;
    chain = location->members;
    if (folder->IsFolder()) {
      prefix = chain.back() + "/";
      chain.pop_back();
    }
  } else {
    container = folder->path();
  }
  int error = 0;
  const std::vector<extract::ArchiveMember>* members = Listing(*folder, container, chain, &error);
  if (!members) return error;

  // The folder's children: members right below the prefix, and folders that only appear as
  // the start of deeper members' paths, once each.
  std::set<std::string> folders_seen;
  for (const extract::ArchiveMember& member : *members) {
    std::string_view path = member.path;
    if (path.size() <= prefix.size() || path.substr(0, prefix.size()) != prefix) continue;
    std::string_view rest = path.substr(prefix.size());
    while (!rest.empty() && rest.back() == '/') rest.remove_suffix(1);
    if (rest.empty()) continue;
    size_t slash = rest.find('/');
    const bool deeper = slash != std::string_view::npos;
    std::string name(deeper ? rest.substr(0, slash) : rest);
    const bool is_dir = deeper || member.is_dir;
    if (is_dir && !folders_seen.insert(name).second) continue;
    props::ArchiveLocation location{container, chain};
    location.members.push_back(prefix + name);
    extract::ArchiveMember shown = member;
    if (deeper) {
      shown = extract::ArchiveMember{};
      shown.is_dir = true;
    }
    auto item = props::ShellItem::FromArchiveMember(std::move(location), MemberStatusOf(shown));
    out->push_back(VirtualChild{std::move(item), is_dir});
  }
  return 0;
}

}  // namespace trovix::engine
