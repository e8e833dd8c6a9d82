// The seam sets kept beside the text pieces: a piece that holds a phrase must never be ruled
// out by its seams, and pieces that hold the phrase's words but not the phrase mostly are.
// The pieces of a text read in parts: the very pieces of the whole text, wherever it was cut.
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

// Pieces as (lead, text), to compare.
using Cut = std::vector<std::pair<size_t, std::string>>;

Cut Streamed(const std::vector<std::string>& parts, size_t piece_bytes, size_t overlap) {
  Cut out;
  TextPieceStream stream(piece_bytes, overlap,
                         [&](const TextPiece& p) { out.emplace_back(p.lead, std::string(p.text)); });
  for (const std::string& part : parts) stream.Add(part);
  stream.Finish();
  return out;
}

TEST(TextPieceStream, GivesThePiecesOfTheWholeTextWhereverItIsCut) {
  // Blanks of every kind and in runs, NULs, upper case of several lengths in UTF-8 (whose
  // folding changes the byte count), and bytes that are no UTF-8 at all.
  const std::string atoms[] = {"Lantern", "harbour", " ", "  \t\r\n ", std::string("\0", 1),
                               "\xC3\x89t\xC3\xA9", "\xE2\x84\xAA", "\xF0\x9F\x98\x80", "\xC3", "\xE2\x82",
                               "\xFF", "\x80\x80", "ST\xC3\x96RM"};
  std::mt19937 random(29);
  for (int round = 0; round < 300; ++round) {
    std::string text;
    const int count = static_cast<int>(random() % 600);
    for (int i = 0; i < count; ++i) text += atoms[random() % std::size(atoms)];
    const size_t piece_bytes = 16 + random() % 200;
    const size_t overlap = random() % 80;
    Cut whole;
    const std::string indexed = IndexedText(text);
    for (const TextPiece& p : SplitTextPieces(indexed, piece_bytes, overlap)) whole.emplace_back(p.lead, std::string(p.text));
    // Parts of every size from one byte to more than the text, cut anywhere.
    std::vector<std::string> parts;
    for (size_t at = 0; at < text.size();) {
      const size_t n = 1 + random() % (round % 3 == 0 ? 4 : round % 3 == 1 ? 300 : 5000);
      parts.push_back(text.substr(at, n));
      at += n;
    }
    ASSERT_EQ(Streamed(parts, piece_bytes, overlap), whole) << "round " << round;
  }
  EXPECT_TRUE(Streamed({}, 64, 8).empty());
  EXPECT_TRUE(Streamed({std::string(5, '\0'), ""}, 64, 8).empty());
}

// A row damaged on disk is refused, never trusted for the length it claims: four bytes can
// say a gigabyte, and reading the index must not allocate it.
TEST(CompressedText, ComesBackWholeAndADamagedBlobIsRefused) {
  const std::string text = "quiet harbour " + std::string(20000, 'x');
  std::string back;
  ASSERT_TRUE(InflateText(CompressText(text), &back));
  EXPECT_EQ(back, text);
  std::string claims_too_much = CompressText("short");
  claims_too_much[3] = '\x3f';  // the length now says about a gigabyte
  EXPECT_FALSE(InflateText(claims_too_much, &back));
  EXPECT_TRUE(back.empty() || back.capacity() < (1u << 20));
  EXPECT_FALSE(InflateText("abc", &back));
}

}  // namespace
}  // namespace trovix::engine::index
