// The seam sets kept beside the text pieces: a piece that holds a phrase must never be ruled
// out by its seams, and pieces that hold the phrase's words but not the phrase mostly are.
#include "index/sqlite/text_pieces.h"

#include <gtest/gtest.h>

#include <random>
#include <string>
#include <vector>

namespace trovix::engine::index {
namespace {

TEST(SeamSet, NeverRulesOutAPieceThatHoldsThePhrase) {
  const char* const words[] = {"quiet", "harbour", "lantern", "a", "of", "to", "the", "ledger", "x", "ab"};
  std::mt19937 random(7);
  for (int round = 0; round < 200; ++round) {
    std::string text;
    const int count = 20 + static_cast<int>(random() % 400);
    for (int i = 0; i < count; ++i) text += std::string(i ? " " : "") + words[random() % std::size(words)];
    const std::string seams = SeamSet(text);
    ASSERT_EQ(seams.size(), kSeamBytes);
    // Every stretch of the text, cut anywhere, is allowed.
    for (int probe = 0; probe < 50; ++probe) {
      const size_t from = random() % text.size();
      const size_t length = 1 + random() % std::min<size_t>(40, text.size() - from);
      const std::string_view literal = std::string_view(text).substr(from, length);
      ASSERT_TRUE(SeamsMayHold(seams, literal)) << "\"" << literal << "\" in \"" << text << "\"";
    }
  }
}

TEST(SeamSet, RulesOutMostPiecesWithTheWordsButNotThePhrase) {
  std::mt19937 random(11);
  // A vocabulary of prose: the phrase's words are common, but never next to each other.
  std::vector<std::string> words = {"quiet", "harbour", "lantern"};
  for (int i = 0; i < 300; ++i) {
    std::string w;
    for (int n = 3 + static_cast<int>(random() % 6); n > 0; --n) w.push_back(static_cast<char>('a' + random() % 26));
    words.push_back(w);
  }
  int allowed = 0;
  const int pieces = 300;
  for (int round = 0; round < pieces; ++round) {
    // About 1,300 words, as an 8 KiB piece of prose holds.
    std::string text, last;
    for (int i = 0; i < 1300; ++i) {
      std::string word = words[random() % 12 == 0 ? random() % 3 : random() % words.size()];
      if ((last == "quiet" && word == "harbour") || (last == "harbour" && word == "lantern")) word = "stone";
      text += (text.empty() ? "" : " ") + word;
      last = word;
    }
    allowed += SeamsMayHold(SeamSet(text), "quiet harbour lantern");
  }
  // The trigram table proposes every one of these pieces; the seams let few through.
  EXPECT_LT(allowed, pieces / 10);
  // Literals without a seam of seven bytes, and rows without a set, are never ruled out.
  EXPECT_TRUE(SeamsMayHold(SeamSet("nothing here"), "zz yy"));
  EXPECT_TRUE(SeamsMayHold("", "quiet harbour lantern"));
}

}  // namespace
}  // namespace trovix::engine::index
