#include "rules/blob/rule_blob.h"

#include <algorithm>

#include "rules/byte_io.h"

namespace trovix::rules {

std::string Serialise(const std::vector<RulePtr>& rules) {
  std::string out;
  bytes::Append32(out, kRuleBlobVersion);
  for (const RulePtr& rule : rules) {
    const size_t payload = rule->SaveSize();
    const size_t start = out.size();
    out.resize(start + kRuleRecordHeaderSize + payload);
    auto* record = reinterpret_cast<uint8_t*>(out.data() + start);
    bytes::Put32(record, static_cast<uint32_t>(kRuleRecordHeaderSize + payload));
    bytes::Put32(record + 4, static_cast<uint32_t>(rule->Kind()));
    const std::array<uint8_t, 20> key = rule->Key().Bytes();
    std::copy(key.begin(), key.end(), record + 8);
    rule->Save(record + kRuleRecordHeaderSize);
  }
  bytes::Append32(out, 0);
  return out;
}

std::vector<RulePtr> Deserialise(std::string_view blob) {
  std::vector<RulePtr> rules;
  const auto* data = reinterpret_cast<const uint8_t*>(blob.data());
  const size_t size = blob.size();
  if (size < 4 || bytes::Get32(data) != kRuleBlobVersion) return rules;

  size_t pos = 4;
  while (size - pos >= 4) {
    const uint32_t record_size = bytes::Get32(data + pos);
    if (record_size == 0) break;
    // A size that cannot be a record, or that runs past the end, leaves nothing trustworthy
    // after it: the rules read so far are all there is.
    if (record_size < kRuleRecordHeaderSize || record_size > size - pos) break;
    const uint8_t* record = data + pos;
    const int32_t stored_kind = static_cast<int32_t>(bytes::Get32(record + 4));
    RulePtr rule = Rule::Create(props::PropertyKey::FromBytes(record + 8));
    // The kind comes from the catalogue: a property whose type changed loses its rule.
    if (rule->Load(record + kRuleRecordHeaderSize, record_size - kRuleRecordHeaderSize) &&
        !rule->IsEmpty() && rule->Kind() == stored_kind) {
      rules.push_back(std::move(rule));
    }
    pos += record_size;
  }
  RepairIndents(rules);
  return rules;
}

void RepairIndents(std::vector<RulePtr>& rules) {
  int32_t previous = -1;
  for (const RulePtr& rule : rules) {
    int32_t indent = std::max(rule->Indent(), 0);
    if (indent > previous + 1) indent = previous + 1;
    rule->SetIndent(indent);
    previous = indent;
  }
}

}  // namespace trovix::rules
