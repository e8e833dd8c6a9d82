#include "cli/item_path.h"

#include <fcntl.h>

#include "engine/extraction/archive_folders.h"
#include "engine/extraction/extraction_service.h"
#include "platform/file_status.h"

namespace trovix::cli {
props::ShellItemPtr ResolveItemPath(const std::string& path, std::string* error) {
  platform::FileStatus st;
  if (platform::StatPath(AT_FDCWD, path, true, &st) == 0) return props::ShellItem::FromPath(path, true);
  // Find the archive: the longest leading part of the path that is a regular file.
  size_t cut = path.size();
  while ((cut = path.rfind('/', cut - 1)) != std::string::npos && cut > 0) {
    if (platform::StatPath(AT_FDCWD, path.substr(0, cut), true, &st) == 0) break;
  }
  if (cut == std::string::npos || cut == 0 || st.type != platform::FileType::kRegular) {
    *error = "\"" + path + "\": no such file";
    return nullptr;
  }
  props::ArchiveLocation location{path.substr(0, cut), {}};
  // The rest is the member path; archives inside it start a new link of the chain.
  std::string rest = path.substr(cut + 1);
  std::string current;
  size_t start = 0;
  while (start <= rest.size()) {
    size_t slash = rest.find('/', start);
    std::string part = rest.substr(start, slash == std::string::npos ? std::string::npos : slash - start);
    current += (current.empty() ? "" : "/") + part;
    if (slash == std::string::npos) break;
    if (engine::ArchiveClassOf(part) != 0) {
      location.members.push_back(current);
      current.clear();
    }
    start = slash + 1;
  }
  if (current.empty()) {
    *error = "\"" + path + "\": no member named";
    return nullptr;
  }
  // The member's size and date come from its archive's listing.
  extract::ExtractRequest request;
  request.op = extract::kOpList;
  request.path = location.container;
  request.members = location.members;
  std::vector<extract::ArchiveMember> members;
  engine::FileIdentity identity{location.container, st.size, st.modified};
  engine::ExtractOutcome outcome = engine::ExtractionService::Shared().List(request, identity, &members);
  for (const extract::ArchiveMember& member : members) {
    if (member.path != current) continue;
    location.members.push_back(current);
    return props::ShellItem::FromArchiveMember(std::move(location), engine::MemberStatusOf(member));
  }
  *error = "\"" + path + "\": " + (outcome.message.empty() ? "no such member in the archive" : outcome.message);
  return nullptr;
}

}  // namespace trovix::cli
