// trovix-cli text FILE [--excerpt N] [--term TEXT]: the text Trovix reads from a file, or from
// a member of an archive named by the archive's path followed by the member's path
// ("/x/a.zip/docs/b.pdf", "/x/a.zip/inner.zip/c.txt"), as UTF-8 on standard output.
#include <fcntl.h>

#include <cstdio>
#include <cstdlib>
#include <string>
#include <vector>

#include "cli/cli_store.h"
#include "cli/command_table.h"
#include "cli/number_option.h"
#include "cli/search_command.h"
#include "engine/archive_folders.h"
#include "engine/contents_reader.h"
#include "engine/extraction_service.h"
#include "platform/file_status.h"

namespace trovix::cli {
namespace {

platform::FileStatus StatusOfMember(const extract::ArchiveMember& member) {
  platform::FileStatus st;
  st.type = member.is_dir ? platform::FileType::kDirectory : platform::FileType::kRegular;
  st.size = member.size;
  st.modified = base::FileTimeFromUnix(member.mtime_sec, member.mtime_nsec);
  return st;
}

// The item a path names: a file of the file system, or an archive member when the path runs
// on past an archive file. Null with a message when neither.
props::ShellItemPtr ResolveItem(const std::string& path, std::string* error) {
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
    return props::ShellItem::FromArchiveMember(std::move(location), StatusOfMember(member));
  }
  *error = "\"" + path + "\": " + (outcome.message.empty() ? "no such member in the archive" : outcome.message);
  return nullptr;
}

}  // namespace

int RunTextCommand(const std::vector<std::string>& args) {
  std::string file;
  std::string term;
  long long excerpt = -1;
  engine::ContentsOptions options;
  if (const auto& settings = LoadedSettings()) {
    options.grep_exclude_types = settings->szGrepExcludeTypes;
    options.max_stream_extract_size = settings->nMaxStreamExtractSize;
    options.bin_search_flags = settings->binSearchFlags;
  }
  for (size_t i = 0; i < args.size(); ++i) {
    const std::string& a = args[i];
    if ((a == "--excerpt" || a == "--term" || a == "--max-extract-size") && i + 1 >= args.size()) {
      std::fprintf(stderr, "trovix-cli: option %s needs a value\n", a.c_str());
      return 2;
    }
    if (a == "--excerpt") {
      std::string error;
      if (!ParseNumberOption(a, args[++i], 0, INT32_MAX, &excerpt, &error)) {
        std::fprintf(stderr, "trovix-cli: %s\n", error.c_str());
        return 2;
      }
    } else if (a == "--term") {
      term = args[++i];
    } else if (a == "--max-extract-size") {
      long long n = 0;
      std::string error;
      if (!ParseNumberOption(a, args[++i], 0, UINT32_MAX, &n, &error)) {
        std::fprintf(stderr, "trovix-cli: %s\n", error.c_str());
        return 2;
      }
      options.max_stream_extract_size = n < 10'000 ? 0 : static_cast<uint32_t>(n);
    } else if (file.empty() && !(a.size() > 1 && a[0] == '-')) {
      file = a;
    } else if (a.size() > 1 && a[0] == '-') {
      std::fprintf(stderr, "trovix-cli: %s\n", UnknownOptionMessage(*FindCommand("text"), a).c_str());
      return 2;
    } else {
      std::fprintf(stderr, "trovix-cli: text takes one FILE and --excerpt N, --term TEXT\n");
      return 2;
    }
  }
  if (file.empty()) {
    std::fprintf(stderr, "trovix-cli: text needs a FILE\n");
    return 2;
  }
  std::string error;
  props::ShellItemPtr item = ResolveItem(file, &error);
  if (!item) {
    std::fprintf(stderr, "trovix-cli: %s\n", error.c_str());
    return 2;
  }
  engine::ContentsReader reader(options);
  props::ContentsResult result;
  bool any = false;
  if (excerpt >= 0 || !term.empty()) {
    std::string text = engine::TextExcerpt(excerpt >= 0 ? static_cast<size_t>(excerpt) : SIZE_MAX, *item, reader,
                                           term, &result);
    any = !text.empty();
    std::fwrite(text.data(), 1, text.size(), stdout);
    if (any) std::fputc('\n', stdout);
  } else {
    result = reader.Read(*item, [&](std::string_view piece) {
      any = any || !piece.empty();
      return std::fwrite(piece.data(), 1, piece.size(), stdout) == piece.size();
    });
  }
  switch (result.status) {
    case props::ContentsStatus::kText:
    case props::ContentsStatus::kNoText:
      return any ? 0 : 1;
    case props::ContentsStatus::kNotAFile:
      std::fprintf(stderr, "trovix-cli: \"%s\" is not a file\n", file.c_str());
      return 2;
    default:
      std::fprintf(stderr, "trovix-cli: %s: %s\n", file.c_str(),
                   result.message.empty() ? "the text cannot be read" : result.message.c_str());
      return any ? 0 : 2;
  }
}

}  // namespace trovix::cli
