// trovix-cli text FILE [--excerpt N] [--term TEXT]: the text Trovix reads from a file, or from
// a member of an archive named by the archive's path followed by the member's path
// ("/x/a.zip/docs/b.pdf", "/x/a.zip/inner.zip/c.txt"), as UTF-8 on standard output.
#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>
#include <vector>

#include "app/request_settings.h"
#include "cli/cli_store.h"
#include "cli/commands/command_table.h"
#include "cli/item_path.h"
#include "cli/options/number_option.h"
#include "cli/options/option_ids.h"
#include "cli/options/option_reader.h"
#include "cli/commands/search_command.h"
#include "engine/extraction/contents_reader.h"

namespace trovix::cli {

int RunTextCommand(const std::vector<std::string>& args) {
  std::string file;
  std::string term;
  long long excerpt = -1;
  engine::ContentsOptions options;
  if (const auto& settings = LoadedSettings()) {
    app::ApplySettingsToContents(*settings, &options);
  }
  OptionReader options_read(*FindCommand("text"), args);
  OptionItem given;
  std::string error;
  while (options_read.Next(&given, &error)) {
    long long n = 0;
    const int id = given.option ? given.option->id : 0;
    if (id == kOptExcerpt) {
      if (!ParseNumberOption(given.name, given.value, 0, INT32_MAX, &excerpt, &error)) break;
    } else if (id == kOptTerm) {
      term = given.value;
    } else if (id == kOptMaxExtractSize) {
      if (!ParseNumberOption(given.name, given.value, 0, UINT32_MAX, &n, &error)) break;
      options.max_stream_extract_size = n < 10'000 ? 0 : static_cast<uint32_t>(n);
    } else if (id == kOptSearchZip) {
      options.bin_search_flags |= engine::kSearchFlagSearchZip;
    } else if (given.option == nullptr && file.empty()) {
      file = given.name;
    } else if (given.option != nullptr) {
      error = UnknownOptionMessage(*FindCommand("text"), given.name);
      break;
    } else {
      std::fprintf(stderr, "trovix-cli: text takes one FILE and --excerpt N, --term TEXT\n");
      return 2;
    }
  }
  if (!error.empty()) {
    std::fprintf(stderr, "trovix-cli: %s\n", error.c_str());
    return 2;
  }
  if (file.empty()) {
    std::fprintf(stderr, "trovix-cli: text needs a FILE\n");
    return 2;
  }
  props::ShellItemPtr item = ResolveItemPath(file, &error);
  if (!item) {
    std::fprintf(stderr, "trovix-cli: %s\n", error.c_str());
    return 2;
  }
  engine::ContentsReader reader(options);
  props::ContentsResult result;
  bool any = false;
  int write_error = 0;  // the errno of the first write to stdout that failed
  const auto put = [&](std::string_view piece) {
    if (write_error == 0 && std::fwrite(piece.data(), 1, piece.size(), stdout) != piece.size())
      write_error = errno != 0 ? errno : EIO;
    return write_error == 0;
  };
  if (excerpt >= 0 || !term.empty()) {
    std::string text = engine::TextExcerpt(excerpt >= 0 ? static_cast<size_t>(excerpt) : SIZE_MAX, *item, reader,
                                           term, &result);
    any = !text.empty();
    if (put(text) && any) put("\n");
  } else {
    result = reader.Read(*item, [&](std::string_view piece) {
      any = any || !piece.empty();
      return put(piece);
    });
  }
  if (write_error == 0 && std::fflush(stdout) != 0) write_error = errno != 0 ? errno : EIO;
  // A reader that went away (| head -c 60) stopped the text on purpose: it has what it wanted.
  if (write_error == EPIPE) return 0;
  if (write_error != 0) {
    std::fprintf(stderr, "trovix-cli: cannot write the text: %s\n", std::strerror(write_error));
    return 2;
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
