#include "rules/matchers/contents_scan.h"

#include <gtest/gtest.h>

#include <random>
#include <string>

namespace trovix::rules {
namespace {

std::string SlowFold(const std::string& text, bool* in_blank) {
  std::string out;
  for (char c : text) {
    bool b = c == ' ' || (c >= '\t' && c <= '\r');
    if (!b) out.push_back(c);
    else if (!*in_blank) out.push_back(' ');
    *in_blank = b;
  }
  return out;
}

// The folding works sixteen bytes at a time where it can; every mix of blanks, at every place
// in and across the chunks, and across pieces, must give what the byte-by-byte rule gives.
TEST(FoldBlanks, AgreesWithTheByteRuleAcrossChunksAndPieces) {
  std::mt19937 rng(5);
  const std::string alphabet = "ab \n\t\r\f\v\xC3\xA9x  ";
  for (int round = 0; round < 3000; ++round) {
    std::string text(rng() % 120, 'a');
    const int density = static_cast<int>(rng() % 4);
    for (char& c : text) c = (static_cast<int>(rng() % 8) < density) ? alphabet[rng() % alphabet.size()] : 'q';
    const size_t cut = text.empty() ? 0 : rng() % text.size();
    bool slow_blank = round % 2 == 0, fast_blank = slow_blank;
    std::string slow = SlowFold(text.substr(0, cut), &slow_blank);
    slow += SlowFold(text.substr(cut), &slow_blank);
    std::string fast = FoldBlanks(std::string_view(text).substr(0, cut), &fast_blank);
    fast += FoldBlanks(std::string_view(text).substr(cut), &fast_blank);
    ASSERT_EQ(fast, slow) << "text of " << text.size() << " bytes cut at " << cut;
    ASSERT_EQ(fast_blank, slow_blank);
  }
}

}  // namespace
}  // namespace trovix::rules
