// The byte pre-check of HTML pages: it may pass over a page only when the page's text cannot
// hold the words, which the tests prove against the text the helper's HTML reader gives, on
// hand-made hostile pages and on the HTML of the installed packages' documentation.
#include "engine/extraction/markup_precheck.h"

#include <gtest/gtest.h>
#include <stdlib.h>

#include <algorithm>
#include <filesystem>
#include <fstream>
#include <sstream>

#include "engine/extraction/contents_reader.h"
#include "props/shell_item.h"
#include "rules/matchers/contents_scan.h"
#include "rules/patterns/text_pattern.h"
#include "tests/support/extract_env.h"
#include "tests/support/temp_tree.h"

namespace trovix::engine {
namespace {

const bool kEnvironment = [] {
  testing::UseBuiltExtractionHelper();
  return true;
}();

bool MayHold(std::string_view page, std::string needle, bool ignore_case = true) {
  auto check = MarkupPrecheck::Make({std::move(needle)}, ignore_case);
  return check == nullptr || check->MayHold(page);
}

// The text the HTML reader gives for a page, through the helper as a search reads it.
std::string HelperText(ContentsReader& reader, const std::string& path, props::ContentsStatus* status = nullptr) {
  auto item = props::ShellItem::FromPath(path);
  std::string text;
  props::ContentsResult result = reader.Read(*item, [&](std::string_view piece) {
    text.append(piece);
    return true;
  });
  if (status) *status = result.status;
  return text;
}

// Whether the helper's text of the page holds `needle` as a contents rule finds it.
bool TextHolds(const std::string& text, const std::string& needle) {
  auto program = rules::KeywordProgram::Compile(needle, 3, rules::kPatternIgnoreCase | rules::kPatternVerbatim);
  return program && program->Match(rules::FoldBlanks(text));
}

TEST(MarkupPrecheck, SeesWordsThroughMarkupReferencesAndBlanks) {
  struct Case {
    const char* page;
    const char* needle;
  };
  // Pages whose text holds the needle (the helper's reader says which; "<![CDATA[" is text to
  // it), or where a reference might make it: none may be passed over.
  const Case cases[] = {
      {"<p>GNU General Public License</p>", "gnu general public license"},
      {"<p>GNU <b>General</b>\n   Public<br>License</p>", "gnu general public license"},
      {"<p>Gen<span class=x>er</span>al</p>", "general"},
      {"<p>Gen<!-- a > b -- > c -->eral</p>", "general"},
      {"<p>Gen<a title=\"x>y\" alt = '>'>eral</a></p>", "general"},
      {"<p>Gen<a title=x\"y>eral</a> \"quoted\"</p>", "general"},
      {"<p>Gen<a \"x>eral</a></p>", "general"},
      {"<p>Gen<script>var a = '<b>x</b>';</script>eral</p>", "general"},
      {"<p>Gen<style>p > a { }</style>eral</p>", "general"},
      {"<p>G&#101;n&#x65;r&aacute;l &amp; co</p>", "general & co"},
      {"<p>Gen&#101ral</p>", "general"},
      {"<p>a&nbsp;b</p>", "a b"},
      {"<p>a&lt;b</p>", "a<b"},
      {"<p>x < y</p>", "x < y"},
      {"<td>one</td><td>two</td>", "one two"},
      {"<p>one</p><p>two</p>", "one two"},
      {"<p>\xE2\x84\xAA" "elvin</p>", "kelvin"},  // the Kelvin sign folds to "k"
      {"<p>le\xC5\xBF" "s</p>", "less"},         // the long s folds to "s"
      {"<p>Gen\x01" "eral</p>", "general"},
      {"<p>Gen<![CDATA[eral]]></p>", "general"},
      {"<p>Gen<?pi x>eral</p>", "general"},
      {"<p>General</p>", "GENERAL"},
  };
  testing::TempTree tree;
  ContentsReader reader(ContentsOptions{});
  int held = 0;
  for (const Case& c : cases) {
    SCOPED_TRACE(c.page);
    tree.File("page.html", c.page);
    const bool holds = TextHolds(HelperText(reader, tree.path("page.html")), c.needle);
    held += holds;
    if (holds || std::string_view(c.page).find('&') != std::string_view::npos) {
      EXPECT_TRUE(MayHold(c.page, c.needle));
    }
  }
  EXPECT_GE(held, 15);
  // What the bytes cannot hold is passed over; a case-sensitive needle asks more of them.
  EXPECT_FALSE(MayHold("<p>GNU General Public Licence</p>", "gnu general public license"));
  EXPECT_FALSE(MayHold("<p>nothing here</p>", "lighthouse"));
  EXPECT_FALSE(MayHold("<p>General</p>", "GENERAL", false));
  EXPECT_FALSE(MayHold("<p>Gexneral</p>", "general"));
  // Needles the check cannot judge give no check at all.
  EXPECT_EQ(MarkupPrecheck::Make({"stra\xC3\x9F" "e"}, true), nullptr);
  EXPECT_EQ(MarkupPrecheck::Make({""}, true), nullptr);
}

TEST(MarkupPrecheck, TrustsOnlyCharsetsThatKeepAscii) {
  EXPECT_TRUE(AsciiCompatiblePage("<meta charset=\"utf-8\"><p>x</p>"));
  EXPECT_TRUE(AsciiCompatiblePage("<meta http-equiv=Content-Type content=\"text/html; charset=ISO-8859-1\">"));
  EXPECT_TRUE(AsciiCompatiblePage("<?xml version=\"1.0\" encoding='windows-1252'?><html/>"));
  EXPECT_TRUE(AsciiCompatiblePage("<p>the charset of a page is its own business</p>"));
  // Only meta elements and the XML declaration declare: a script's words do not.
  EXPECT_TRUE(AsciiCompatiblePage("<script>if (charSet == undefined) encoding = 76;</script>"));
  EXPECT_FALSE(AsciiCompatiblePage("<?xml version=\"1.0\" encoding=\"UTF-16\"?><html/>"));
  EXPECT_FALSE(AsciiCompatiblePage("<meta charset=\"utf-7\"><p>+AGU-</p>"));
  EXPECT_FALSE(AsciiCompatiblePage("<meta charset=\"ISO-2022-JP\">"));
  EXPECT_FALSE(AsciiCompatiblePage("<meta charset=UTF-16>"));
  EXPECT_FALSE(AsciiCompatiblePage("<meta charset=Shift_JIS>"));
  EXPECT_FALSE(AsciiCompatiblePage(std::string("\xFF\xFE<\0p\0>\0", 8)));
  EXPECT_FALSE(AsciiCompatiblePage(std::string("<\0p\0>\0", 6)));
  // A page in UTF-7 says nothing in ASCII that the check can trust, whatever the needle.
  EXPECT_TRUE(MayHold("<meta charset=\"utf-7\"><p>G+AGU-neral</p>", "general"));
}

TEST(MarkupPrecheck, ProgramsSayWhatTheyNeedOnlyWhenItIsSound) {
  props::ContentsNeeds needs;
  auto program = [](std::string_view text, int kind = 5) {
    return rules::KeywordProgram::Compile(text, kind, rules::kPatternIgnoreCase);
  };
  ASSERT_TRUE(rules::NeedsOf(*program("\"quiet harbour\" OR lantern"), &needs));
  EXPECT_EQ(needs.any_of, (std::vector<std::string>{"quiet harbour", "lantern"}));
  EXPECT_TRUE(needs.ignore_case);
  // A page without "lantern" still matches "NOT lantern"; a wildcard names no text.
  EXPECT_FALSE(rules::NeedsOf(*program("NOT lantern"), &needs));
  EXPECT_FALSE(rules::NeedsOf(*program("harb*r"), &needs));
}

// The pre-checked answer against the full one, over the HTML of the installed documentation:
// for every page and needle, a page the check passes over must be one whose text (read by the
// helper) does not hold the needle. The needles are phrases taken from the pages' own text,
// so that most of them are there, and a few common and rare ones.
TEST(MarkupPrecheck, AgreesWithTheFullAnswerOnRealPages) {
  std::vector<std::string> pages;
  std::error_code ec;
  for (auto it = std::filesystem::recursive_directory_iterator("/usr/share/doc", ec);
       !ec && it != std::filesystem::recursive_directory_iterator() && pages.size() < 500; it.increment(ec)) {
    const std::string path = it->path().string();
    const std::string ext = path.substr(path.rfind('.') + 1);
    if ((ext == "html" || ext == "htm") && it->is_regular_file(ec) && it->file_size(ec) < (2u << 20))
      pages.push_back(path);
  }
  if (pages.size() < 10) GTEST_SKIP() << "fewer than 10 HTML pages under /usr/share/doc";
  ContentsReader reader(ContentsOptions{});
  size_t checks = 0, held = 0, passed_over = 0;
  for (const std::string& path : pages) {
    SCOPED_TRACE(path);
    props::ContentsStatus status;
    const std::string text = HelperText(reader, path, &status);
    if (status != props::ContentsStatus::kText) continue;
    // Phrases of one to three words from the page's own text, at a few places.
    std::vector<std::string> words;
    std::istringstream in(rules::FoldBlanks(text));
    for (std::string w; in >> w && words.size() < 4000;) words.push_back(w);
    std::vector<std::string> needles = {"GNU General Public License", "copyright", "the", "zephyrine lighthouse"};
    for (size_t k = 1; k <= 6 && !words.empty(); ++k) {
      const size_t at = words.size() * k / 7;
      std::string phrase;
      for (size_t n = 0; n < 1 + k % 3 && at + n < words.size(); ++n) phrase += (n ? " " : "") + words[at + n];
      if (std::all_of(phrase.begin(), phrase.end(), [](char c) { return (c > 0x20 && c < 0x7F) || c == ' '; }))
        needles.push_back(phrase);
    }
    for (const std::string& needle : needles) {
      auto check = MarkupPrecheck::Make({rules::FoldBlanks(needle)}, true);
      if (!check) continue;
      ++checks;
      const bool holds = TextHolds(text, needle);
      const bool may = check->MayHoldFile(path);
      held += holds;
      passed_over += !may;
      if (holds) {
        EXPECT_TRUE(may) << "passed over a page that holds \"" << needle << "\"";
      }
    }
  }
  // Most needles come from the pages themselves; the rare one is passed over nearly everywhere.
  EXPECT_GT(held, checks / 2);
  EXPECT_GT(passed_over, pages.size() / 2);
}

// End to end: the search passes over the pages that cannot match and finds those that do, and
// a page in a charset the check cannot read through is still read.
TEST(MarkupPrecheck, SearchFindsWhatTheFullReadFinds) {
  testing::TempTree tree({"a.html=<p>quiet <i>har</i>bour &amp; lantern</p>", "b.html=<p>nothing</p>",
                          "c.htm=<meta charset=utf-7><p>quiet harbour +ACY- lantern</p>"});
  ContentsReader reader(ContentsOptions{});
  auto program = rules::KeywordProgram::Compile("\"quiet harbour & lantern\"", 5, rules::kPatternIgnoreCase);
  ASSERT_TRUE(program);
  for (const char* name : {"a.html", "b.html", "c.htm"}) {
    SCOPED_TRACE(name);
    auto item = props::ShellItem::FromPath(tree.path(name));
    props::ContentsResult result;
    const bool matched = rules::MatchContents(*program, true, reader, *item, nullptr, &result);
    const bool expected = TextHolds(HelperText(reader, tree.path(name)), "quiet harbour & lantern");
    EXPECT_EQ(matched, expected);
    if (std::string_view(name) == "b.html") {
      EXPECT_NE(result.message.find("passed over"), std::string::npos);
    }
  }
}

}  // namespace
}  // namespace trovix::engine
