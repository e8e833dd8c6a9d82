// Helpers shared by the rule tests: rules on the properties the tests use most, and catalogue
// entries made up for kinds the real catalogue does not offer in a handy form.
#pragma once

#include <cstring>
#include <memory>
#include <string>
#include <vector>

#include "base/status.h"
#include "props/catalogue.h"
#include "props/contents_source.h"
#include "rules/rule.h"

namespace trovix::rules::testing {

inline props::PropertyKey KeyOf(const char* fmtid, uint32_t pid) {
  return props::PropertyKey{*props::Guid::Parse(fmtid), pid};
}
inline props::PropertyKey SizeKey() { return KeyOf("{B725F130-47EF-101A-A5F1-02608C9EEBAC}", 12); }
inline props::PropertyKey NameKey() { return KeyOf("{B725F130-47EF-101A-A5F1-02608C9EEBAC}", 10); }
inline props::PropertyKey DateModifiedKey() { return KeyOf("{B725F130-47EF-101A-A5F1-02608C9EEBAC}", 14); }
inline props::PropertyKey ContentsKey() { return KeyOf("{B725F130-47EF-101A-A5F1-02608C9EEBAC}", 19); }
inline props::PropertyKey ComplexKey() { return KeyOf("{00010203-0405-0607-0809-0A0B0C0D0E0F}", 18); }
inline props::PropertyKey AttributesKey() { return KeyOf("{B725F130-47EF-101A-A5F1-02608C9EEBAC}", 13); }
inline props::PropertyKey IsFolderKey() { return KeyOf("{09329B74-40A3-4C68-BF07-AF9A572F607C}", 111); }

// A document's text handed over in pieces of `piece` bytes, whatever the item: for matchers
// that read contents, without files.
class TextContents final : public props::ContentsSource {
 public:
  explicit TextContents(std::string text, size_t piece = 1 << 20) : text_(std::move(text)), piece_(piece) {}
  props::ContentsResult Read(props::ShellItem&, const props::TextPieceSink& on_text) override {
    ++reads;
    pieces = 0;
    for (size_t i = 0; i < text_.size(); i += piece_) {
      ++pieces;
      if (!on_text(std::string_view(text_).substr(i, piece_))) break;
    }
    return {props::ContentsStatus::kText, {}};
  }
  void set_text(std::string text) { text_ = std::move(text); }
  int reads = 0;
  int pieces = 0;  // handed over in the last read

 private:
  std::string text_;
  size_t piece_;
};

inline uint64_t Bits(double d) {
  uint64_t b;
  std::memcpy(&b, &d, sizeof b);
  return b;
}
inline uint64_t Bits(int64_t v) { return static_cast<uint64_t>(v); }

inline RulePtr WithContext(RulePtr rule, int32_t context, int32_t indent) {
  rule->SetContext(context);
  rule->SetIndent(indent);
  return rule;
}

// Size = value.
inline RulePtr SizeIs(int64_t value, int32_t context = kContextAnd, int32_t indent = 0) {
  RulePtr rule = Rule::Create(SizeKey());
  rule->SetFlags(cf::kEqual);
  rule->SetMin(Bits(value));
  return WithContext(rule, context, indent);
}

// A simple text rule ignoring case.
inline RulePtr TextRule(const props::PropertyKey& key, std::string text, int32_t context = kContextAnd,
                        int32_t indent = 0) {
  RulePtr rule = Rule::Create(key);
  rule->SetFlags(cf::kIgnoreCase);
  rule->SetText(std::move(text));
  return WithContext(rule, context, indent);
}

// A made-up catalogue entry, kept alive for the whole test program.
inline const props::PropertyInfo& MadeUpProperty(uint32_t pid, uint16_t var_type, uint16_t flags,
                                                 std::shared_ptr<const props::OptionList> options = nullptr) {
  static std::vector<std::unique_ptr<props::PropertyInfo>> keep;
  auto info = std::make_unique<props::PropertyInfo>();
  info->key = KeyOf("{11111111-2222-3333-4444-555555555555}", pid);
  info->hash = info->key.Hash();
  info->type_word = (static_cast<uint32_t>(flags) << 16) | var_type;
  info->name = "Test.Property" + std::to_string(pid);
  info->label = "Test " + std::to_string(pid);
  info->options = std::move(options);
  keep.push_back(std::move(info));
  return *keep.back();
}

// Made-up properties of the value kinds the catalogue has no handy example of.
inline const props::PropertyInfo& FloatProperty() {
  static const props::PropertyInfo& info = MadeUpProperty(920, props::VT_R8, 0);
  return info;
}
inline const props::PropertyInfo& CoordinateProperty() {
  static const props::PropertyInfo& info = MadeUpProperty(921, props::VT_R8, pf::kCoordinate);
  return info;
}
inline const props::PropertyInfo& DurationProperty() {
  static const props::PropertyInfo& info = MadeUpProperty(922, props::VT_UI8, pf::kDuration);
  return info;
}

}  // namespace trovix::rules::testing
