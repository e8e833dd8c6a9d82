#include "text/rtf_control_words.h"

#include <algorithm>
#include <iterator>

namespace trovix::text {
namespace {

struct WordText {
  std::string_view word;
  const char* text;
};

// Sorted by word, for a binary search.
constexpr WordText kTextWords[] = {
    {"bullet", "\xE2\x80\xA2"},
    {"cell", "\t"},
    {"emdash", "\xE2\x80\x94"},
    {"emspace", "\xE2\x80\x83"},
    {"endash", "\xE2\x80\x93"},
    {"enspace", "\xE2\x80\x82"},
    {"ldblquote", "\xE2\x80\x9C"},
    {"line", "\n"},
    {"lquote", "\xE2\x80\x98"},
    {"ltrmark", "\xE2\x80\x8E"},
    {"page", "\n"},
    {"par", "\n"},
    {"qmspace", "\xE2\x80\x85"},
    {"rdblquote", "\xE2\x80\x9D"},
    {"row", "\n"},
    {"rquote", "\xE2\x80\x99"},
    {"rtlmark", "\xE2\x80\x8F"},
    {"sect", "\n"},
    {"tab", "\t"},
    {"zwbo", "\xE2\x80\x8B"},
    {"zwj", "\xE2\x80\x8D"},
    {"zwnbo", "\xEF\xBB\xBF"},
    {"zwnj", "\xE2\x80\x8C"},
};

// Destinations that hold tables, pictures, embedded data or document properties, not text.
// Sorted. Headers, footers, footnotes and field results are body text and are not here.
constexpr std::string_view kSkippedDestinations[] = {
    "author",        "buptim",     "colorschememapping",
    "colortbl",      "comment",    "company",
    "creatim",       "datafield",  "datastore",
    "doccomm",       "falt",       "fchars",
    "ffname",        "filetbl",    "fldinst",
    "fontemb",       "fontfile",   "fonttbl",
    "generator",     "info",       "keywords",
    "latentstyles",  "lchars",     "listoverridetable",
    "listpicture",   "listtable",  "manager",
    "mmathPr",       "nonshppict", "objclass",
    "objdata",       "objname",    "operator",
    "panose",        "pgdsctbl",   "pict",
    "printim",       "private",    "revtbl",
    "revtim",        "rsidtbl",    "sp",
    "stylesheet",    "subject",    "template",
    "themedata",     "title",      "userprops",
    "wgrffmtfilter", "xmlnstbl",
};

struct CharsetCodePage {
  int charset;
  int code_page;
};

constexpr CharsetCodePage kCharsets[] = {
    {0, 1252},   {77, 10000}, {78, 10001}, {79, 10003}, {80, 10008}, {81, 10002},
    {83, 10005}, {84, 10004}, {85, 10006}, {86, 10081}, {87, 10021}, {88, 10029},
    {89, 10007}, {128, 932},  {129, 949},  {130, 1361}, {134, 936},  {136, 950},
    {161, 1253}, {162, 1254}, {163, 1258}, {177, 1255}, {178, 1256}, {186, 1257},
    {204, 1251}, {222, 874},  {238, 1250}, {254, 437},  {255, 850},
};

static_assert(std::is_sorted(std::begin(kTextWords), std::end(kTextWords),
                             [](const WordText& a, const WordText& b) { return a.word < b.word; }));
static_assert(std::is_sorted(std::begin(kSkippedDestinations), std::end(kSkippedDestinations)));

}  // namespace

const char* TextOfControlWord(std::string_view word) {
  auto it = std::lower_bound(std::begin(kTextWords), std::end(kTextWords), word,
                             [](const WordText& a, std::string_view b) { return a.word < b; });
  return it != std::end(kTextWords) && it->word == word ? it->text : nullptr;
}

bool IsSkippedDestination(std::string_view word) {
  return std::binary_search(std::begin(kSkippedDestinations), std::end(kSkippedDestinations), word);
}

int CodePageOfCharset(int charset) {
  for (const CharsetCodePage& c : kCharsets) {
    if (c.charset == charset) return c.code_page;
  }
  return 0;
}

}  // namespace trovix::text
