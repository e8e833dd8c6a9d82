// Helpers for the extraction tests: archives written here with libarchive's writer (so the
// readers meet real zip, tar.gz, 7z, cpio and ISO files), one request run in-process with its
// answers gathered, the comparison of our text with an independent tool's, and the corpus
// folder.
#pragma once

#include <archive.h>
#include <archive_entry.h>
#include <gtest/gtest.h>

#include <unistd.h>

#include <algorithm>
#include <cctype>
#include <cstdlib>
#include <map>
#include <string>
#include <string_view>
#include <vector>

#include "extract/properties/document_properties.h"
#include "extract/request_runner.h"
#include "extract/text_sink.h"
#include "platform/extract_protocol.h"

#include "tests/support/run_program.h"
#include "tests/support/test_files.h"

namespace trovix::extract::fixtures {

struct Entry {
  std::string name;
  std::string data;
  bool dir = false;
  uint64_t repeat_zeros = 0;  // instead of data: this many zero bytes (for bombs)
};

// Writes `entries` to `path` in `format` (ARCHIVE_FORMAT_*) through `filter` (ARCHIVE_FILTER_*).
inline void WriteArchive(const std::string& path, int format, int filter, const std::vector<Entry>& entries) {
  struct archive* a = archive_write_new();
  ASSERT_EQ(archive_write_set_format(a, format), ARCHIVE_OK) << archive_error_string(a);
  if (filter != ARCHIVE_FILTER_NONE) {
    ASSERT_EQ(archive_write_add_filter(a, filter), ARCHIVE_OK);
  }
  ASSERT_EQ(archive_write_open_filename(a, path.c_str()), ARCHIVE_OK) << archive_error_string(a);
  for (const Entry& e : entries) {
    struct archive_entry* entry = archive_entry_new();
    archive_entry_set_pathname(entry, e.name.c_str());
    archive_entry_set_mtime(entry, 1'600'000'000, 0);
    if (e.dir) {
      archive_entry_set_filetype(entry, AE_IFDIR);
      archive_entry_set_perm(entry, 0755);
      archive_entry_set_size(entry, 0);
    } else {
      archive_entry_set_filetype(entry, AE_IFREG);
      archive_entry_set_perm(entry, 0644);
      archive_entry_set_size(entry, static_cast<la_int64_t>(e.repeat_zeros ? e.repeat_zeros : e.data.size()));
    }
    ASSERT_EQ(archive_write_header(a, entry), ARCHIVE_OK) << e.name << ": " << archive_error_string(a);
    if (e.repeat_zeros) {
      std::string zeros(1 << 20, '\0');
      for (uint64_t left = e.repeat_zeros; left > 0;) {
        size_t n = static_cast<size_t>(std::min<uint64_t>(left, zeros.size()));
        archive_write_data(a, zeros.data(), n);
        left -= n;
      }
    } else if (!e.data.empty()) {
      archive_write_data(a, e.data.data(), e.data.size());
    }
    archive_entry_free(entry);
  }
  ASSERT_EQ(archive_write_close(a), ARCHIVE_OK) << archive_error_string(a);
  archive_write_free(a);
}

struct Answer {
  std::string text;
  std::vector<ArchiveMember> members;
  ExtractEnd end;
  std::vector<std::string> member_paths() const {
    std::vector<std::string> paths;
    for (const ArchiveMember& m : members) paths.push_back(m.is_dir ? m.path + "/" : m.path);
    return paths;
  }
};

inline Answer RunInProcess(ExtractOp op, const std::string& path, std::vector<std::string> members = {},
                  ExtractLimits limits = {}) {
  ExtractRequest request;
  request.op = op;
  request.path = path;
  request.members = std::move(members);
  request.limits = limits;
  Answer answer;
  RequestOutput output;
  output.text = [&](std::string_view piece) {
    answer.text.append(piece);
    return true;
  };
  output.member = [&](const ArchiveMember& m) {
    answer.members.push_back(m);
    return true;
  };
  output.cancelled = [] { return false; };
  answer.end = RunRequest(request, output);
  return answer;
}

// Every property the metadata readers find in the file at `path`, by name (the last wins).
inline std::map<std::string, ExtractedProperty> PropertiesOf(const std::string& path, Outcome* outcome = nullptr) {
  ExtractLimits limits;
  ExpandBudget budget(limits.max_expanded_bytes);
  TextSink sink(limits, [](std::string_view) { return true; }, nullptr);
  ExtractContext context{&sink, &budget, limits};
  std::map<std::string, ExtractedProperty> found;
  Outcome o = ReadProperties(DocumentInput::File(path), ExtensionOf(path), context, [&](const ExtractedProperty& p) {
    found[p.name] = p;
    return true;
  });
  if (outcome) *outcome = o;
  return found;
}

// The properties a whole properties request answers for `path`, by name (the last wins).
inline std::map<std::string, ExtractedProperty> RequestProperties(const std::string& path) {
  ExtractRequest request;
  request.op = kOpProps;
  request.path = path;
  std::map<std::string, ExtractedProperty> found;
  RequestOutput output;
  output.property = [&](const ExtractedProperty& p) {
    found[p.name] = p;
    return true;
  };
  output.cancelled = [] { return false; };
  const ExtractEnd end = RunRequest(request, output);
  EXPECT_EQ(end.code, kEndOk) << end.message;
  return found;
}

// A program on the PATH, for tests that compare with an independent reading.
inline bool ToolThere(const std::string& tool) {
  return testing::RunProgram("sh", {"-c", "command -v " + tool}).status == 0;
}

// The words of a text: runs of letters and digits, any character past ASCII counting as a
// letter but the no-break space, which one reader keeps and another turns into a space.
inline std::vector<std::string> Words(std::string_view text) {
  std::vector<std::string> words(1);
  for (size_t i = 0; i < text.size(); ++i) {
    const auto c = static_cast<unsigned char>(text[i]);
    const bool no_break_space = c == 0xC2 && i + 1 < text.size() && text[i + 1] == '\xA0';
    if (!no_break_space && (c >= 0x80 || isalnum(c))) words.back().push_back(text[i]);
    else if (!words.back().empty()) words.emplace_back();
    i += no_break_space;
  }
  if (words.back().empty()) words.pop_back();
  return words;
}

// The words an independent tool reads must all be in our text. Line wrapping splits words in
// its output, so each is looked for as a piece of our text; numbers and picture marks are the
// tools' own additions (list numbers, note marks).
inline std::vector<std::string> MissingWords(const std::string& oracle, const std::string& ours) {
  std::vector<std::string> missing;
  for (const std::string& word : Words(oracle)) {
    const bool digits = word.find_first_not_of("0123456789") == std::string::npos;
    if (word.size() >= 2 && !digits && word != "pic" && ours.find(word) == std::string::npos) missing.push_back(word);
  }
  return missing;
}

using trovix::testing::CorpusDir;

#define SKIP_WITHOUT_CORPUS()                                                            \
  if (access((CorpusDir() + "/documents").c_str(), R_OK) != 0) {                         \
    GTEST_SKIP() << "no corpus at " << CorpusDir() << " (set TROVIX_CORPUS to its folder)"; \
  }

}  // namespace trovix::extract::fixtures
