#include "cli/output/output_sink.h"

#include <gtest/gtest.h>

#include <cstdio>
#include <string>

#include "props/shell_item.h"

namespace trovix::cli {
namespace {

// What was written to a temporary file (not a terminal, so results are gathered).
std::string Contents(std::FILE* f) {
  std::fflush(f);
  std::rewind(f);
  std::string text;
  char buffer[4096];
  size_t n;
  while ((n = std::fread(buffer, 1, sizeof buffer, f)) > 0) text.append(buffer, n);
  return text;
}

std::string PathOf(int i) { return "/some/folder/with/a/long/enough/name/file-" + std::to_string(i) + ".txt"; }

TEST(OutputSink, GatheredResultsAreAllWrittenInOrderAcrossManyBlocks) {
  for (OutputFormat format : {OutputFormat::kPaths, OutputFormat::kNulPaths}) {
    std::FILE* out = std::tmpfile();
    ASSERT_NE(out, nullptr);
    std::string expected;
    const char end = format == OutputFormat::kPaths ? '\n' : '\0';
    {
      OutputOptions options;
      options.format = format;
      OutputSink sink(options, out, stderr);
      // About 1.3 MB: several gathered blocks and a partial one.
      for (int i = 0; i < 20000; ++i) {
        ASSERT_EQ(sink.AddResult(props::ShellItem::FromPath(PathOf(i))), 0);
        expected += PathOf(i);
        expected += end;
      }
      sink.Finish();
      EXPECT_EQ(sink.printed(), 20000);
      EXPECT_EQ(Contents(out), expected);
    }
    std::fclose(out);
  }
}

TEST(OutputSink, ASinkThatGoesWithoutFinishLosesNothing) {
  std::FILE* out = std::tmpfile();
  ASSERT_NE(out, nullptr);
  {
    OutputSink sink(OutputOptions{}, out, stderr);
    sink.AddResult(props::ShellItem::FromPath("/a/b"));
    sink.AddResult(props::ShellItem::FromPath("/a/c"));
  }
  EXPECT_EQ(Contents(out), "/a/b\n/a/c\n");
  std::fclose(out);
}

}  // namespace
}  // namespace trovix::cli
