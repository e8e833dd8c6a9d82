#include "rules/blob/rule_blob.h"

#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "rules/patterns/text_pattern.h"
#include "tests/rules/rule_test_util.h"

namespace trovix::rules {
namespace {

using namespace testing;

// Little-endian pieces for hand-built blobs.
std::string U32(uint32_t v) {
  std::string s(4, '\0');
  for (int i = 0; i < 4; ++i) s[i] = static_cast<char>(v >> (8 * i));
  return s;
}
std::string U64(uint64_t v) { return U32(static_cast<uint32_t>(v)) + U32(static_cast<uint32_t>(v >> 32)); }
std::string Utf16(std::u16string_view text) {
  std::string s;
  for (char16_t c : text) {
    s += static_cast<char>(c & 0xFF);
    s += static_cast<char>(c >> 8);
  }
  return s;
}
// {B725F130-47EF-101A-A5F1-02608C9EEBAC} as it lies in memory.
const std::string kStorageFmtid("\x30\xF1\x25\xB7\xEF\x47\x1A\x10\xA5\xF1\x02\x60\x8C\x9E\xEB\xAC", 16);

std::string NumberRecord(uint32_t pid, int32_t kind, int32_t indent, int32_t context, uint32_t flags,
                         uint64_t min, uint64_t max) {
  return U32(56) + U32(static_cast<uint32_t>(kind)) + kStorageFmtid + U32(pid) + U32(indent) + U32(context) +
         U32(flags) + U64(min) + U64(max);
}
std::string TextRecord(uint32_t pid, int32_t kind, int32_t indent, int32_t context, uint32_t flags_word,
                       std::u16string_view units) {
  const std::string text = Utf16(units);
  return U32(static_cast<uint32_t>(40 + text.size())) + U32(static_cast<uint32_t>(kind)) + kStorageFmtid +
         U32(pid) + U32(indent) + U32(context) + U32(flags_word) + text;
}
std::string Blob(std::initializer_list<std::string> records) {
  std::string blob = U32(1);
  for (const std::string& r : records) blob += r;
  return blob + U32(0);
}

TEST(RuleBlob, SerialisesByteForByte) {
  RulePtr size = Rule::Create(SizeKey());
  size->SetFlags(cf::kLowerBound);
  size->SetMin(100);
  RulePtr name = TextRule(NameKey(), "ab", kContextOr, 1);
  RulePtr keywords = TextRule(NameKey(), BuildKeywordList("x", "", ""), kContextAndNot, 1);
  keywords->SetKind(kKindKeywordList);

  const std::string expected =
      Blob({NumberRecord(12, 0, 0, 0, 0x4, 100, kNoValue), TextRecord(10, 3, 1, 1, 0x1, std::u16string(u"ab\0", 3)),
            TextRecord(10, 4, 1, 2, 0x10001, std::u16string(u"1x\0" u"2\0" u"3\0\0", 8))});
  EXPECT_EQ(Serialise({size, name, keywords}), expected);
  // Records are 56 bytes for numbers and 28 + payload for text.
  EXPECT_EQ(static_cast<uint8_t>(expected[4]), 56);
  EXPECT_EQ(Serialise({}), U32(1) + U32(0));
}

TEST(RuleBlob, RoundTripsEveryKind) {
  RulePtr date = Rule::Create(DateModifiedKey());
  date->SetFlags(cf::kDateKind | cf::kFixedPeriod | (9u << 16));
  RulePtr keywords = TextRule(ContentsKey(), BuildKeywordList("a b", "\"c d\"", "e"), kContextOr, 1);
  keywords->SetKind(kKindKeywordList);
  RulePtr freeform = TextRule(NameKey(), "(x OR y) AND NOT z", kContextAnd, 2);
  freeform->SetKind(kKindFreeform);
  freeform->SetFlags(cf::kIgnoreCase | cf::kWholeWords | cf::kExact);
  RulePtr folder = Rule::Create(IsFolderKey());
  ASSERT_TRUE(folder->SetOption(kOptionEquals, 1));
  folder->SetContext(kContextOrNot);
  RulePtr unicode = TextRule(NameKey(), "Grüße 😀", kContextAnd, 0);
  const std::vector<RulePtr> rules = {SizeIs(42), date, keywords, freeform, folder, unicode};

  const std::vector<RulePtr> loaded = Deserialise(Serialise(rules));
  ASSERT_EQ(loaded.size(), rules.size());
  for (size_t i = 0; i < rules.size(); ++i) {
    SCOPED_TRACE(i);
    EXPECT_TRUE(loaded[i]->Equals(*rules[i]));
  }
}

TEST(RuleBlob, RepairsIndents) {
  const std::vector<RulePtr> loaded = Deserialise(Blob({NumberRecord(12, 0, 0, 0, 0x10, 1, kNoValue),
                                                        NumberRecord(12, 0, 2, 0, 0x10, 2, kNoValue),
                                                        NumberRecord(12, 0, 5, 0, 0x10, 3, kNoValue)}));
  ASSERT_EQ(loaded.size(), 3u);
  EXPECT_EQ(loaded[0]->Indent(), 0);
  EXPECT_EQ(loaded[1]->Indent(), 1);
  EXPECT_EQ(loaded[2]->Indent(), 2);

  const std::vector<RulePtr> first = Deserialise(Blob({NumberRecord(12, 0, 3, 0, 0x10, 1, kNoValue),
                                                       NumberRecord(12, 0, -4, 0, 0x10, 1, kNoValue)}));
  ASSERT_EQ(first.size(), 2u);
  EXPECT_EQ(first[0]->Indent(), 0);
  EXPECT_EQ(first[1]->Indent(), 0);
}

TEST(RuleBlob, DropsRecordsThatNoLongerFitAndKeepsTheOthers) {
  const std::string good = NumberRecord(12, 0, 0, 0, 0x10, 5, kNoValue);
  // The size property saved as if it had been a date: its type changed since.
  EXPECT_EQ(Deserialise(Blob({NumberRecord(12, 1, 0, 0, 0x5, 5, kNoValue), good})).size(), 1u);
  // An empty rule, a property nobody knows, a reserved text mode.
  EXPECT_EQ(Deserialise(Blob({NumberRecord(12, 0, 0, 0, 0x10, kNoValue, kNoValue), good})).size(), 1u);
  std::string unknown = good;
  unknown[8] = '\x99';
  EXPECT_EQ(Deserialise(Blob({unknown, good})).size(), 1u);
  EXPECT_EQ(Deserialise(Blob({TextRecord(10, 6, 0, 0, 0x30001, std::u16string(u"a\0", 2)), good})).size(), 1u);
  // The text mode comes from the flags word; a mode that disagrees with the stored kind drops.
  EXPECT_EQ(Deserialise(Blob({TextRecord(10, 3, 0, 0, 0x20001, std::u16string(u"a\0", 2)), good})).size(), 1u);
  // An option index the list does not have.
  EXPECT_EQ(Deserialise(Blob({U32(48) + U32(10) + std::string("\x74\x9B\x32\x09\xA3\x40\x68\x4C\xBF\x07\xAF\x9A\x57\x2F\x60\x7C", 16) +
                                  U32(111) + U32(0) + U32(0) + U32(0) + U32(0) + U32(9),
                              good}))
                .size(),
            1u);
  // No surviving rule is a failure.
  EXPECT_TRUE(Deserialise(Blob({NumberRecord(12, 1, 0, 0, 0x5, 5, kNoValue)})).empty());
}

TEST(RuleBlob, LoadsOptionRulesFromTheirOptionList) {
  // Stored flags and bounds are ignored; the option decides.
  const std::string record = U32(48) + U32(10) +
                             std::string("\x74\x9B\x32\x09\xA3\x40\x68\x4C\xBF\x07\xAF\x9A\x57\x2F\x60\x7C", 16) +
                             U32(111) + U32(0) + U32(1) + U32(0xFFFF) + U32(0) + U32(1);
  const std::vector<RulePtr> loaded = Deserialise(Blob({record}));
  ASSERT_EQ(loaded.size(), 1u);
  EXPECT_EQ(loaded[0]->Kind(), kKindEnumNumber);
  EXPECT_EQ(loaded[0]->OptionIndex(), 1);
  EXPECT_EQ(loaded[0]->Flags(), cf::kEqual);
  EXPECT_EQ(loaded[0]->Context(), kContextOr);
}

TEST(RuleBlob, ReadsTextUpToItsFirstZero) {
  const std::vector<RulePtr> loaded =
      Deserialise(Blob({TextRecord(10, 3, 0, 0, 0x1, std::u16string(u"abc\0def\0", 8))}));
  ASSERT_EQ(loaded.size(), 1u);
  EXPECT_EQ(loaded[0]->Text(), "abc");
}

TEST(RuleBlob, CorruptBlobsLoadAsNothingOrAsTheSurvivingRules) {
  const std::string good = NumberRecord(12, 0, 0, 0, 0x10, 5, kNoValue);
  const std::string blob = Blob({good, good});
  struct Case {
    const char* what;
    std::string bytes;
    size_t rules;
  } cases[] = {
      {"empty", "", 0},
      {"wrong version", U32(2) + good + U32(0), 0},
      {"first size 0", U32(1) + U32(0) + good, 0},
      {"truncated in the second record", blob.substr(0, 4 + 56 + 30), 1},
      {"no end marker", blob.substr(0, blob.size() - 4), 2},
      {"truncated size field", blob.substr(0, 4 + 56 + 2), 1},
      {"size below 28", U32(1) + good + U32(27) + std::string(40, '\0'), 1},
      {"giant size", U32(1) + good + U32(0xFFFFFFF0u) + good, 1},
      {"size one past the end", U32(1) + U32(61) + good.substr(4) + U32(0), 0},
      {"odd text length", U32(1) + U32(45) + U32(3) +
                              kStorageFmtid + U32(10) + U32(0) + U32(0) + U32(1) + std::string("a\0b\0\0", 5) + good + U32(0), 1},
      {"text without terminator", Blob({TextRecord(10, 3, 0, 0, 1, u"ab"), good}), 1},
      {"keyword list without closing zero", Blob({TextRecord(10, 4, 0, 0, 0x10001, std::u16string(u"1a\0", 3)), good}), 1},
      {"number payload too short", U32(1) + U32(40) + U32(0) + kStorageFmtid + U32(12) + U32(0) + U32(0) + U32(0x10) + good + U32(0), 1},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.what);
    EXPECT_EQ(Deserialise(c.bytes).size(), c.rules);
  }
}

}  // namespace
}  // namespace trovix::rules
