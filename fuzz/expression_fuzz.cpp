// Fuzzes the expression compiler and evaluator: any text must compile or fail with an error
// inside the text, and a compiled expression must evaluate against values of every kind
// (including ones that do not fit the property) without crashing.
//
// Input: the expression text, optionally followed by a NUL byte and bytes that choose the
// values the fake host hands out.

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <string>
#include <string_view>
#include <vector>

#include "rules/expression/expression.h"

namespace {

using trovix::rules::ExprValue;

class FakeHost : public trovix::rules::ExpressionHost {
 public:
  explicit FakeHost(std::string_view seed) : seed_(seed) {}

  void FetchValue(size_t index, const std::string&, ExprValue* value) override {
    uint8_t b = Byte(index * 3);
    int64_t n = static_cast<int64_t>(static_cast<uint64_t>(Byte(index * 3 + 1)) << (Byte(index * 3 + 2) % 64));
    switch (b % 7) {
      case 0: break;  // no value
      case 1: *value = ExprValue::Integer(b & 8 ? static_cast<int64_t>(0 - static_cast<uint64_t>(n)) : n); break;
      case 2: *value = ExprValue::Date(n); break;
      case 3: *value = ExprValue::Float(static_cast<double>(n) / 7.0); break;
      case 4: *value = ExprValue::Text(std::string(seed_.substr(0, b % 9))); break;
      case 5: *value = ExprValue::Integer(b & 8 ? INT64_MIN : INT64_MAX); break;
      case 6: *value = ExprValue::Float(b & 8 ? __builtin_nan("") : __builtin_inf()); break;
    }
  }
  void Grep(const ExprValue& pattern, ExprValue* result) override {
    *result = ExprValue::Bool(seed_.find(pattern.text) != std::string_view::npos);
  }

 private:
  uint8_t Byte(size_t i) const { return seed_.empty() ? 0 : static_cast<uint8_t>(seed_[i % seed_.size()]); }
  std::string_view seed_;
};

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  std::string_view input(reinterpret_cast<const char*>(data), size);
  size_t split = input.find('\0');
  std::string_view text = input.substr(0, split);
  std::string_view seed = split == std::string_view::npos ? std::string_view() : input.substr(split + 1);

  trovix::rules::Expression expression;
  bool compiled = expression.Compile(text);
  std::string error_text = expression.ErrorText();
  if (!compiled) {
    // The caret must point into the stripped text (or just past its end).
    if (expression.error_code() < 1 || expression.error_code() > 6) abort();
    if (expression.error_position() < 0 ||
        static_cast<size_t>(expression.error_position()) > expression.text().size())
      abort();
    return 0;
  }
  if (error_text != "NO ERROR!" || expression.names().empty()) abort();

  for (int round = 0; round < 3; ++round) {
    FakeHost host(seed.substr(std::min<size_t>(seed.size(), static_cast<size_t>(round))));
    std::vector<ExprValue> values;
    trovix::rules::ExprResult result = expression.Evaluate(values, host);
    if (result.error < 0 || static_cast<size_t>(result.error) > expression.tokens().size()) abort();
  }
  return 0;
}
