// The librevenge route, on WordPerfect files written here byte by byte: a WordPerfect 4.2
// document (plain characters between function codes, which is how that format keeps text)
// checked against wpd2text where libwpd-tools is installed, and password-protected documents
// of two generations, which must answer "encrypted" without text.
#include <gtest/gtest.h>

#include <string>

#include "tests/extract/extract_fixtures.h"
#include "tests/support/run_program.h"
#include "tests/support/temp_tree.h"

namespace trovix::extract {
namespace {

using fixtures::Answer;
using fixtures::RunInProcess;
using trovix::testing::TempTree;

// 0x81 and 0x8C are single-byte function codes of WordPerfect 4.2; 0x0A a hard return.
const std::string kWp42 = "Quarterly figures\x81\nThe sales rose by half.\x8C\nMore next year.\n";

std::string Squeezed(const std::string& text) {
  std::string out;
  for (char c : text) {
    const bool space = c == ' ' || c == '\n' || c == '\r' || c == '\t';
    if (space && (out.empty() || out.back() == ' ')) continue;
    out.push_back(space ? ' ' : c);
  }
  while (!out.empty() && out.back() == ' ') out.pop_back();
  return out;
}

TEST(WordProcessorReader, ReadsWordPerfectThroughLibrevenge) {
  TempTree tree;
  tree.File("figures.wpd", kWp42);
  Answer a = RunInProcess(kOpText, tree.path("figures.wpd"));
  ASSERT_EQ(a.end.code, kEndOk) << a.end.message;
  EXPECT_EQ(Squeezed(a.text), "Quarterly figures The sales rose by half. More next year.");
  // The importer is picked by content: the same bytes under another listed name read the same.
  tree.File("figures.wp5", kWp42);
  EXPECT_EQ(Squeezed(RunInProcess(kOpText, tree.path("figures.wp5")).text), Squeezed(a.text));
}

TEST(WordProcessorReader, AgreesWithWpd2text) {
  if (std::system("command -v wpd2text >/dev/null 2>&1") != 0)
    GTEST_SKIP() << "wpd2text (libwpd-tools) is not installed";
  TempTree tree;
  tree.File("figures.wpd", kWp42);
  const std::string oracle = trovix::testing::RunProgram("wpd2text", {tree.path("figures.wpd")}).out;
  ASSERT_FALSE(oracle.empty());
  EXPECT_EQ(Squeezed(RunInProcess(kOpText, tree.path("figures.wpd")).text), Squeezed(oracle));
}

TEST(WordProcessorReader, PasswordProtectedDocumentsAnswerEncrypted) {
  TempTree tree;
  // WordPerfect 4.2's mark of an encrypted file, then scrambled bytes.
  tree.File("old.wpd", std::string("\xFE\xFF\x61\x61", 4) + "\x13\x57\x9B\xDF scrambled");
  // A WordPerfect 5 prefix ("\xFFWPC", document offset, product, type, version) with an
  // encryption key set, and room for the document it announces.
  tree.File("new.wpd", std::string("\xFF"
                                   "WPC\x10\x00\x00\x00\x01\x0A\x00\x00\x12\x34\x00\x00",
                                   16) +
                           std::string(200, '\0'));
  for (const char* name : {"old.wpd", "new.wpd"}) {
    SCOPED_TRACE(name);
    Answer a = RunInProcess(kOpText, tree.path(name));
    EXPECT_EQ(a.end.code, kEndEncrypted) << a.end.message;
    EXPECT_EQ(a.end.message, "encrypted");
    EXPECT_EQ(a.text, "");
  }
}

TEST(WordProcessorReader, WhatNoImporterReadsIsUnreadable) {
  TempTree tree;
  tree.File("plain.wps", "just some text that no importer claims\n");
  tree.File("junk.wri", std::string(3000, '\xA5'));
  tree.File("empty.wpd", "");
  EXPECT_EQ(RunInProcess(kOpText, tree.path("plain.wps")).end.code, kEndUnreadable);
  EXPECT_NE(RunInProcess(kOpText, tree.path("junk.wri")).end.code, kEndOk);
  EXPECT_EQ(RunInProcess(kOpText, tree.path("empty.wpd")).end.code, kEndNoText);
}

}  // namespace
}  // namespace trovix::extract
